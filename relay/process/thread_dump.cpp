#include "process/thread_dump.h"

#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// The relay's threads by the numbers under which the VM's dump has them: it knows no names of
/// theirs.
std::string ownThreads()
{
    std::string text;
    std::error_code error;
    for (const auto &task : fs::directory_iterator("/proc/self/task", error)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name.rfind("ferry", 0) == 0) {
            const std::string number = task.path().filename();
            text += fmt::format("nid={:#x} ({}) {}\n", std::strtoul(number.c_str(), nullptr, 10),
                                number, name);
        }
    }
    return text;
}

} // namespace

ThreadDump::ThreadDump(Relay &relay, PluginHost &host, Console &console)
    : relay_(relay), host_(host), console_(console)
{
}

ThreadDump::~ThreadDump()
{
    thread_.join();
}

/// What the relay knows comes first: that can be logged even if the VM no longer answers.
void ThreadDump::request()
{
    std::string text = fmt::format("thread dump\n{}", ownThreads());
    for (const std::string &call : relay_.callsUnderWay()) {
        text += fmt::format("under way: {}\n", call);
    }
    console_.logText(text);
    if (busy_.exchange(true)) {
        console_.logText("the VM is still at an earlier dump\n");
        return;
    }
    thread_.join();
    const auto dump = [this] {
        console_.logText(host_.threadDump());
        busy_.store(false);
    };
    if (!thread_.start("ferry:dump", dump)) {
        busy_.store(false);
    }
}

} // namespace ferry
