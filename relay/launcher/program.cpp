#include "launcher/program.h"

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ferry {

bool runProgram(std::vector<std::string> command, int input, int output)
{
    std::vector<char *> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string &word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t process = 0;
    int status = -1;
    const bool started =
        posix_spawn(&process, arguments[0], &actions, &attributes, arguments.data(), environ) == 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return started && waitpid(process, &status, 0) == process && status == 0;
}

} // namespace ferry
