#include "launcher/class_archive.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "launcher/program.h"
#include "process/exit_code.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// A copy of the installation's training configuration, which goes when this does.
class Training {
public:
    explicit Training(const Installation &installation)
    {
        std::string name = (fs::temp_directory_path() / "ferry_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw fs::filesystem_error("cannot make a directory", name,
                                       std::error_code(errno, std::generic_category()));
        }
        directory_ = name;
        fs::copy(installation.training, directory_);
    }
    Training(const Training &) = delete;
    Training &operator=(const Training &) = delete;
    ~Training()
    {
        std::error_code ignored;
        fs::remove_all(directory_, ignored);
    }

    /// The archive; nothing is there when the relay or its VM has failed.
    fs::path run(const VmCandidate &vm) const
    {
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        runProgram({fs::read_symlink("/proc/self/exe"), "run", directory_ / "relay.yaml",
                    "--until-idle=0.5", "--quiet", "--java-home", vm.home},
                   nothing, nothing);
        close(nothing);
        return directory_ / "classes.jsa";
    }

private:
    fs::path directory_;
};

} // namespace

fs::path classArchive(const Installation &installation, const VmCandidate &vm)
{
    return installation.libraries / ("ferry-classes-" + vm.fullVersion + ".jsa");
}

int makeClassArchive(const Installation &installation, const VmLocations &locations)
{
    VmSearch search;
    findVm(locations, search);
    if (search.chosen == nullptr) {
        std::fprintf(stderr, "ferry: %s\n", noVmText(search).c_str());
        return exitNoStart;
    }
    const Training training(installation);
    const fs::path made = training.run(*search.chosen);
    if (!fs::exists(made)) {
        std::fprintf(stderr, "ferry: the Java VM %s made no archive\n",
                     search.chosen->home.c_str());
        return exitErrors;
    }
    const fs::path archive = classArchive(installation, *search.chosen);
    const fs::path copy = archive.string() + ".new";
    fs::copy_file(made, copy, fs::copy_options::overwrite_existing);
    fs::rename(copy, archive);
    std::printf("%s\n", archive.c_str());
    return exitOk;
}

} // namespace ferry
