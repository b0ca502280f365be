// A host that meets every failure of Java and of memory once, at every call of the bridge, and goes
// on with what it gets.
#include <gtest/gtest.h>

#include <memory>

#include "harness.h"

using namespace bridge;

namespace {

class Sweeps : public testing::TestWithParam<const char *> {};

TEST_P(Sweeps, ComeOutAsReviewed)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    std::vector<std::string> scenario;
    const std::vector<Case> life = readCases("life");
    for (const std::string &line : life.front().lines) {
        if (isCommand(line)) {
            scenario.push_back(line);
        }
    }
    const auto begin = [global]() -> std::function<void(const std::string &)> {
        return [host = std::make_shared<Host>(global)](const auto &line) { host->execute(line); };
    };
    // Once for whatever the VM and the binding keep for ever.
    const auto warmUp = begin();
    for (const std::string &line : scenario) {
        warmUp(line);
    }
    sweep(GetParam(), scenario, begin, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Bridge, Sweeps, testing::Values("jni", "env", "heap"),
                         [](const auto &kind) { return kind.param; });

} // namespace
