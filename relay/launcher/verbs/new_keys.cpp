// `ferry new keys`: certificates, governance and permissions for a secured DDS domain, made with
// the program openssl. All that is new is made aside and comes into the directory in the end.
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "launcher/complain.h"
#include "launcher/program.h"
#include "launcher/verb.h"
#include "process/exit_code.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// How long the certificate of the authority itself is good for.
constexpr int authorityDays = 3650;
constexpr std::time_t secondsOfDay = 86400;

constexpr const char *opensslConfiguration = R"([req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, digitalSignature, keyCertSign, cRLSign
[node]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, keyAgreement
)";

/// Whole messages are encrypted, those that find others but for what finding needs. Who has no
/// certificate is not talked to.
constexpr const char *governance = R"(<?xml version="1.0" encoding="UTF-8"?>
<dds xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
     xsi:noNamespaceSchemaLocation="http://www.omg.org/spec/DDS-SECURITY/20170901/omg_shared_ca_governance.xsd">
  <domain_access_rules>
    <domain_rule>
      <domains><id_range><min>0</min><max>230</max></id_range></domains>
      <allow_unauthenticated_participants>false</allow_unauthenticated_participants>
      <enable_join_access_control>true</enable_join_access_control>
      <discovery_protection_kind>NONE</discovery_protection_kind>
      <liveliness_protection_kind>NONE</liveliness_protection_kind>
      <rtps_protection_kind>ENCRYPT</rtps_protection_kind>
      <topic_access_rules>
        <topic_rule>
          <topic_expression>*</topic_expression>
          <enable_discovery_protection>false</enable_discovery_protection>
          <enable_liveliness_protection>false</enable_liveliness_protection>
          <enable_read_access_control>true</enable_read_access_control>
          <enable_write_access_control>true</enable_write_access_control>
          <metadata_protection_kind>NONE</metadata_protection_kind>
          <data_protection_kind>NONE</data_protection_kind>
        </topic_rule>
      </topic_access_rules>
    </domain_rule>
  </domain_access_rules>
</dds>
)";

constexpr const char *permissions = R"(<?xml version="1.0" encoding="UTF-8"?>
<dds xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
     xsi:noNamespaceSchemaLocation="http://www.omg.org/spec/DDS-SECURITY/20170901/omg_shared_ca_permissions.xsd">
  <permissions>
    <grant name="{0}">
      <subject_name>CN={0}</subject_name>
      <validity><not_before>{1:%Y-%m-%dT%H:%M:%S}</not_before><not_after>{2:%Y-%m-%dT%H:%M:%S}</not_after></validity>
      <allow_rule>
        <domains><id_range><min>0</min><max>230</max></id_range></domains>
        <publish><topics>{3}</topics></publish>
        <subscribe><topics>{3}</topics></subscribe>
      </allow_rule>
      <default>DENY</default>
    </grant>
  </permissions>
</dds>
)";

/// What cannot be done; said as it stands.
using Failure = std::runtime_error;

bool isName(const std::string &text)
{
    return !text.empty() && text[0] != '.' && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
    });
}

std::string escaped(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
    }
    return result;
}

class Keys {
public:
    explicit Keys(fs::path directory) : directory_(std::move(directory))
    {
        fs::create_directories(directory_);
        std::string name = (directory_ / ".new-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw Failure(fmt::format("cannot write {}", directory_.string()));
        }
        work_ = name;
        write("openssl.cnf", opensslConfiguration);
    }
    ~Keys()
    {
        std::error_code ignored;
        fs::remove_all(work_, ignored);
    }
    Keys(const Keys &) = delete;
    Keys &operator=(const Keys &) = delete;

    /// The authority that the directory has, or a new one with its governance.
    void addAuthority()
    {
        const bool there = fs::exists(directory_ / "ca.pem");
        if (there != fs::exists(directory_ / "ca.key")) {
            throw Failure(fmt::format("{} has only one of ca.pem and ca.key", directory_.string()));
        }
        if (there) {
            authority_ = directory_;
            return;
        }
        authority_ = work_;
        makeKey("ca");
        openssl({"req", "-x509", "-new", "-extensions", "authority", "-key", "ca.key", "-subj",
                 "/CN=ferry CA", "-days", std::to_string(authorityDays), "-out", "ca.pem"});
        publish("ca.key");
        publish("ca.pem");
        write("governance.xml", governance);
        sign("governance");
    }

    void addNode(const std::string &name, const std::vector<std::string> &topics, int days)
    {
        makeKey(name);
        openssl({"req", "-x509", "-new", "-extensions", "node", "-CA", authority("ca.pem"),
                 "-CAkey", authority("ca.key"), "-key", name + ".key", "-subj", "/CN=" + name,
                 "-days", std::to_string(days), "-out", name + ".pem"});
        publish(name + ".key");
        publish(name + ".pem");
        std::string list;
        for (const std::string &topic : topics) {
            list += fmt::format("<topic>{}</topic>", escaped(topic));
        }
        const std::time_t now = std::time(nullptr);
        write(name + ".permissions.xml",
              fmt::format(permissions, name, fmt::gmtime(now - secondsOfDay),
                          fmt::gmtime(now + days * secondsOfDay), list));
        sign(name + ".permissions");
    }

    /// All of it, in place of what had the same names.
    void finish()
    {
        for (const std::string &file : made_) {
            fs::rename(work_ / file, directory_ / file);
            std::cout << (directory_ / file).string() << "\n";
        }
    }

private:
    std::string authority(const char *file) const
    {
        return fs::absolute(authority_ / file).string();
    }

    void write(const std::string &file, const std::string &text)
    {
        std::ofstream out(work_ / file);
        out << text;
        out.close();
        if (!out) {
            throw Failure(fmt::format("cannot write {}", (work_ / file).string()));
        }
    }

    void publish(const std::string &file)
    {
        made_.push_back(file);
    }

    void makeKey(const std::string &name)
    {
        openssl({"genpkey", "-quiet", "-algorithm", "EC", "-pkeyopt",
                 "ec_paramgen_curve:prime256v1", "-out", name + ".key"});
        fs::permissions(work_ / (name + ".key"), fs::perms::owner_read | fs::perms::owner_write);
    }

    void sign(const std::string &name)
    {
        openssl({"smime", "-sign", "-text", "-in", name + ".xml", "-signer", authority("ca.pem"),
                 "-inkey", authority("ca.key"), "-out", name + ".p7s"});
        publish(name + ".xml");
        publish(name + ".p7s");
    }

    /// Files are named without a directory where they are new.
    void openssl(std::vector<std::string> arguments) const
    {
        const std::string what = arguments[0];
        if (what == "req") {
            arguments.insert(arguments.end(), {"-config", "openssl.cnf"});
        }
        for (std::string &argument : arguments) {
            const std::string suffix = fs::path(argument).extension().string();
            const bool isFile = suffix == ".key" || suffix == ".pem" || suffix == ".xml" ||
                                suffix == ".p7s" || suffix == ".cnf";
            if (isFile && argument[0] != '/') {
                argument = fs::absolute(work_ / argument).string();
            }
        }
        arguments.insert(arguments.begin(), "/usr/bin/openssl");
        if (!runProgram(arguments, STDIN_FILENO, STDOUT_FILENO)) {
            throw Failure(
                fmt::format("/usr/bin/openssl {} failed (Debian's package openssl)", what));
        }
    }

    const fs::path directory_;
    fs::path work_;
    /// Where the authority's files are by now.
    fs::path authority_;
    std::vector<std::string> made_;
};

class NewKeysVerb : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("DIR", directory_, "Where to; its ca.pem and ca.key are used again")
            ->required();
        command.add_option("--node", nodes_, "A participant's name; once for each")->required();
        command.add_option("--allow", topics_,
                           "Topics that these nodes may publish and subscribe to, with * and ? "
                           "(default all)");
        command.add_option("--days", days_, "How long the nodes' certificates are good for (365)")
            ->check(CLI::Range(1, authorityDays));
        command.add_flag("--renew", renew_, "Replace what the nodes have");
    }

    void complete() override
    {
        for (const std::string &node : nodes_) {
            if (!isName(node) || node == "ca" || node == "governance") {
                throw CLI::ValidationError(
                    "--node", fmt::format("\"{}\" cannot be a node's name: letters, digits, '-', "
                                          "'_' and '.', not \"ca\", not \"governance\"",
                                          node));
            }
        }
    }

    int run() override
    {
        try {
            return make();
        } catch (const std::exception &reason) {
            complain(fmt::format("ferry: {}", reason.what()));
            return exitErrors;
        }
    }

private:
    int make() const
    {
        const fs::path directory = directory_;
        for (const std::string &node : nodes_) {
            const fs::path file = directory / (node + ".key");
            if (!renew_ && fs::exists(file)) {
                complain(fmt::format("ferry: {} is there already; nothing was made (--renew "
                                     "replaces it)",
                                     file.string()));
                return exitUsage;
            }
        }
        ::umask(077);
        Keys keys(directory);
        keys.addAuthority();
        const std::vector<std::string> all = {"*"};
        for (const std::string &node : nodes_) {
            keys.addNode(node, topics_.empty() ? all : topics_, days_);
        }
        keys.finish();
        const std::string place = fs::absolute(directory).lexically_normal().string();
        std::cout << fmt::format(
            "next: keep ca.key where no node can read it, and give a DDS connection on {1}\n"
            "properties:\n"
            "  security:\n"
            "    identity_ca: {0}/ca.pem\n"
            "    certificate: {0}/{1}.pem\n"
            "    key: {0}/{1}.key\n"
            "    governance: {0}/governance.p7s\n"
            "    permissions: {0}/{1}.permissions.p7s\n",
            place, nodes_.front());
        return exitOk;
    }

    std::string directory_;
    std::vector<std::string> nodes_;
    std::vector<std::string> topics_;
    int days_ = 365;
    bool renew_ = false;
};

const RegisteredVerb<NewKeysVerb>
    registered("new keys", "Make certificates and permissions for a secured DDS domain");

} // namespace
} // namespace ferry
