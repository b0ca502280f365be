// A test with a folder of its own, which goes with it.
#ifndef TESTS_RELAY_FOLDER_TEST_H
#define TESTS_RELAY_FOLDER_TEST_H

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

class FolderTest : public testing::Test {
protected:
    FolderTest()
    {
        std::string pattern = testing::TempDir() + "ferry_relay_XXXXXX";
        directory = std::filesystem::canonical(mkdtemp(pattern.data()));
    }
    ~FolderTest() override
    {
        std::filesystem::remove_all(directory);
    }

    std::filesystem::path directory;
};

#endif
