// `ferry archive`: quicker starts.
#include "launcher/class_archive.h"
#include "launcher/verb.h"

namespace ferry {
namespace {

class Archive : public Verb {
public:
    void declare(CLI::App &command) override
    {
        addJavaHome(command, javaHome_);
    }
    int run() override
    {
        return makeClassArchive(findInstallation(), vmLocations(javaHome_));
    }

private:
    std::filesystem::path javaHome_;
};

const RegisteredVerb<Archive>
    registered("archive",
               "Keep what the Java VM makes of the installation's classes, for quicker starts");

} // namespace
} // namespace ferry
