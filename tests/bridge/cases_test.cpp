// Plays the case files: a case is a transcript whose ">", "@" and "!" lines are executed and whose
// whole text must come out again. What a case leaves behind after everything has been deleted, its
// global references and heap blocks, is its last line. "#" starts a comment.
#include <gtest/gtest.h>

#include <fstream>

#include "harness.h"

using namespace bridge;

namespace {

struct Case {
    std::string title;
    std::string given;
    std::vector<std::string> lines;
};

std::vector<Case> readCases(const std::string &file)
{
    std::ifstream stream(BRIDGE_CASES_DIR "/" + file + ".cases");
    std::vector<Case> cases;
    for (std::string line; std::getline(stream, line);) {
        if (line.rfind("== ", 0) == 0) {
            cases.push_back({line.substr(3), "", {}});
        } else if (line.rfind("given ", 0) == 0) {
            cases.back().given = line.substr(6);
        } else if (!line.empty() && line[0] != '#') {
            cases.back().lines.push_back(line);
        }
    }
    return cases;
}

std::string perform(FERRYJNIGlobal *global, const Case &toPlay)
{
    const size_t references = jni.globals.size();
    const int64_t blocks = heapBlocks();
    Host host(global);
    if (!toPlay.given.empty()) {
        host.given(toPlay.given);
    }
    for (const std::string &line : toPlay.lines) {
        if (line[0] == '>' || line[0] == '@' || line[0] == '!') {
            host.execute(line);
        }
    }
    std::string text = transcript();
    if (!jni.hasFailed || !heap.hasFailed) {
        text += "\nTHE FAULT DID NOT OCCUR";
    }
    act("reset");
    host.deleteAll();
    return text + "\n= " + std::to_string(jni.globals.size() - references) + " references, " +
           std::to_string(heapBlocks() - blocks) + " blocks";
}

class Cases : public testing::TestWithParam<const char *> {};

TEST_P(Cases, ComeOutAsWritten)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    // Once for whatever the VM and the binding keep for ever.
    perform(global, {"warm-up", "writer", {"! read 2 i2", "> read", "> write 1 2"}});
    const std::vector<Case> cases = readCases(GetParam());
    ASSERT_FALSE(cases.empty());
    for (const Case &each : cases) {
        SCOPED_TRACE(each.title);
        std::string expected;
        for (const std::string &line : each.lines) {
            expected += "\n" + line;
        }
        EXPECT_EQ(perform(global, each), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Bridge, Cases,
                         testing::Values("life", "adapter", "connection", "session", "reader",
                                         "writer", "discovery", "hostile"),
                         [](const auto &file) { return file.param; });

} // namespace
