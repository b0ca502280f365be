// Java adapters that misbehave in every method of theirs: what the host is told of it, and that
// nothing of it is left behind.
#include <gtest/gtest.h>

#include "harness.h"

using namespace bridge;

namespace {

/// A method of an adapter, the host's call that gets there, and what it reports when the method
/// throws; "" stands for the exception's own message.
struct Place {
    const char *given;
    const char *before;
    const char *method;
    const char *call;
    const char *text;
};

const Place places[] = {
    {"", "", "new", "create_adapter", "exception"},
    {"", "", "getVersion", "create_adapter", "exception calling Adapter.getVersion()"},
    {"adapter", "", "createConnection", "create_connection", "exception creating connection"},
    {"adapter", "", "toString", "create_connection", "toString returned null"},
    {"connection", "", "getInputStreamDiscoveryReader", "get_pub", "exception"},
    {"connection", "", "getOutputStreamDiscoveryReader", "get_sub", "exception"},
    {"connection", "> get_pub", "read", "read pub", "exception"},
    {"connection", "> get_pub", "returnLoan", "return_loan pub", "exception"},
    {"connection", "", "createSession", "create_session", "exception"},
    {"session", "", "createStreamReader", "create_reader", "exception"},
    {"session", "", "createStreamWriter", "create_writer", "exception"},
    {"connection", "", "update", "update_connection", ""},
    {"session", "", "update", "update_session", ""},
    {"reader", "", "update", "update_reader", ""},
    {"writer", "", "update", "update_writer", ""},
    {"reader", "", "read", "read", "exception"},
    {"reader", "> read", "returnLoan", "return_loan", "exception"},
    {"writer", "", "write", "write 1 2", "write"},
    {"writer", "", "deleteStreamWriter", "delete_writer", "exception"},
    {"reader", "", "deleteStreamReader", "delete_reader", "exception"},
    {"session", "", "deleteSession", "delete_session", "exception"},
    {"connection", "", "deleteConnection", "delete_connection", "exception"},
    {"adapter", "", "finalize", "delete_adapter", "exception"},
};

/// What is thrown, and what its message comes to; null when there is none to be had.
struct Kind {
    const char *name;
    const char *message;
};

const Kind kinds[] = {
    {"unchecked", "hostile"},
    {"checked", "hostile"},
    {"format", "100%s %n %d"},
    {"blank", nullptr},
    {"mute", nullptr},
    {"stack", nullptr},
    {"memory", "Requested array size exceeds VM limit"},
    {"death", nullptr},
    {"init", "Could not initialize class com.qel.ferrion.test.Hostile$Broken"},
};

class Hostile : public testing::Test {
protected:
    void SetUp() override
    {
        global = startVm();
        ASSERT_NE(global, nullptr);
        // Once for whatever the VM and the binding keep for ever, the failure of a class included.
        perform({"", "", "new", "create_adapter", ""}, "init");
        perform({"writer", "", "read", "write 1 2", ""}, "blank");
    }
    /// Has a method misbehave in one call; what that call said, then what the next one did, then
    /// what is left when all has been deleted.
    std::vector<std::string> perform(const Place &place, const std::string &kind)
    {
        const size_t references = jni.globals.size();
        const int64_t blocks = heapBlocks();
        Host host(global);
        if (*place.given != '\0') {
            host.given(place.given);
        }
        if (*place.before != '\0') {
            host.execute(place.before);
        }
        host.execute(std::string("! ") + place.method + " hostile " + kind);
        const std::string call = place.call;
        transcript();
        host.execute("> " + call);
        std::vector<std::string> said = {transcript()};
        act("reset");
        if (call.rfind("delete_", 0) == 0) {
            host.execute("> create_" + call.substr(7));
        }
        host.execute("> " + call);
        said.push_back(transcript());
        host.deleteAll();
        said.push_back(transcript());
        said.push_back(std::to_string(jni.globals.size() - references) + " references, " +
                       std::to_string(heapBlocks() - blocks) + " blocks");
        return said;
    }
    FERRYJNIGlobal *global = nullptr;
};

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_F(Hostile, WhateverAMethodThrowsIsToldAndOver)
{
    for (const Place &place : places) {
        const std::string expectedLeft = perform(place, "unchecked")[3];
        for (const Kind &kind : kinds) {
            SCOPED_TRACE(std::string(place.call) + ": " + kind.name + " in " + place.method);
            const std::vector<std::string> said = perform(place, kind.name);
            const std::string fallback = "exception calling Entity.update()";
            const std::string text = *place.text != '\0'       ? place.text
                                     : kind.message != nullptr ? kind.message
                                                               : fallback;
            EXPECT_TRUE(has(said[0], ":!" + text + "\n")) << said[0];
            EXPECT_TRUE(has(said[0], "\n(described)\n")) << said[0];
            EXPECT_EQ(said[0].substr(said[0].rfind('!')), "!" + text) << said[0];
            for (size_t i = 1; i < 3; ++i) {
                EXPECT_FALSE(has(said[i], "!")) << said[i];
            }
            EXPECT_EQ(said[3], expectedLeft);
        }
    }
}

TEST_F(Hostile, ASpoiltThreadServesOn)
{
    for (const Place &place : places) {
        SCOPED_TRACE(std::string(place.call) + ": spoilt in " + place.method);
        for (const std::string &said : perform(place, "spoil")) {
            EXPECT_FALSE(has(said, "!")) << said;
        }
    }
}

TEST_F(Hostile, NoSignalGetsThroughOnceTheReaderIsDeleted)
{
    for (int round = 0; round < 50; ++round) {
        Host host(global);
        host.given("reader");
        host.execute("! storm 2 0");
        host.execute("! storm 2 0");
        host.execute("> delete_reader");
        act("signal 2 0");
        act("reset");
        const std::string said = transcript();
        const std::string after = said.substr(said.rfind("\n<"));
        EXPECT_FALSE(has(after, "signal to")) << after;
        host.deleteAll();
    }
}

} // namespace
