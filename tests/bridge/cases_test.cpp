// Plays the case files: a case is a transcript whose ">", "@" and "!" lines are executed and whose
// whole text must come out again. What a case leaves behind after everything has been deleted, its
// global references and heap blocks, is its last line. "#" starts a comment.
#include <gtest/gtest.h>

#include "harness.h"

using namespace bridge;

namespace {

std::string perform(FERRYJNIGlobal *global, const Case &toPlay)
{
    const size_t references = jni.globals.size();
    const int64_t blocks = heapBlocks();
    Host host(global);
    if (!toPlay.given.empty()) {
        host.given(toPlay.given);
    }
    for (const std::string &line : toPlay.lines) {
        if (isCommand(line)) {
            host.execute(line);
        }
    }
    std::string text = transcript();
    if (fault.isPending()) {
        text += "\nTHE FAULT DID NOT OCCUR";
    }
    fault = {};
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
                         testing::Values("life", "adapter", "connection", "reader", "writer",
                                         "discovery", "hostile", "alien"),
                         [](const auto &file) { return file.param; });

} // namespace
