#include "security.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include "xml.h"

namespace qddsdomain {
namespace {

template<auto function> struct With {
    template<class Object> void operator()(Object *object) const
    {
        function(object);
    }
};
using Bio = std::unique_ptr<BIO, With<BIO_free_all>>;
using Certificate = std::unique_ptr<X509, With<X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, With<EVP_PKEY_free>>;
using Signed = std::unique_ptr<PKCS7, With<PKCS7_free>>;
using Store = std::unique_ptr<X509_STORE, With<X509_STORE_free>>;
using StoreContext = std::unique_ptr<X509_STORE_CTX, With<X509_STORE_CTX_free>>;

/// The first thing that is wrong.
struct Problem {
    std::string text;
};

bool isText(std::string_view value)
{
    return value.rfind("-----BEGIN", 0) == 0 || value.rfind("MIME-Version", 0) == 0;
}

/// One of the files: what it is called in messages, and what is in it.
class Document {
public:
    Document(const char *what, const char *value) : value_(value == nullptr ? "" : value)
    {
        if (value_.empty()) {
            throw Problem{fmt::format("the {} is missing", what)};
        }
        if (isText(value_)) {
            name_ = fmt::format("the {}", what);
            content_ = value_;
            return;
        }
        name_ = fmt::format("the {} \"{}\"", what, value_);
        std::ifstream in(value_, std::ios::binary);
        if (!in) {
            throw Problem{fmt::format("{} cannot be read: {}", name_, std::strerror(errno))};
        }
        content_.assign(std::istreambuf_iterator<char>(in), {});
        if (in.bad()) {
            throw Problem{fmt::format("{} cannot be read: {}", name_, std::strerror(errno))};
        }
    }

    const std::string &name() const
    {
        return name_;
    }
    /// For the engine.
    std::string uri() const
    {
        return (isText(value_) ? "data:," : "file:") + value_;
    }
    Bio open() const
    {
        return Bio(BIO_new_mem_buf(content_.data(), static_cast<int>(content_.size())));
    }
    [[noreturn]] void fail(std::string_view why) const
    {
        throw Problem{fmt::format("{} {}", name_, why)};
    }

private:
    std::string value_;
    std::string name_;
    std::string content_;
};

std::string dateOf(const ASN1_TIME *time)
{
    std::tm date{};
    std::array<char, 32> text{};
    ASN1_TIME_to_tm(time, &date);
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M UTC", &date);
    return text.data();
}

Certificate certificateOf(const Document &document)
{
    Certificate certificate(PEM_read_bio_X509(document.open().get(), nullptr, nullptr, nullptr));
    if (certificate == nullptr) {
        document.fail("is no certificate in PEM format");
    }
    if (X509_cmp_current_time(X509_get0_notBefore(certificate.get())) > 0) {
        document.fail(
            fmt::format("is not valid before {}", dateOf(X509_get0_notBefore(certificate.get()))));
    }
    if (X509_cmp_current_time(X509_get0_notAfter(certificate.get())) < 0) {
        document.fail(fmt::format("expired on {}", dateOf(X509_get0_notAfter(certificate.get()))));
    }
    return certificate;
}

Store storeOf(X509 *authority)
{
    Store store(X509_STORE_new());
    X509_STORE_add_cert(store.get(), authority);
    // A CA that is not self-signed is trusted as well: the files say whom to trust.
    X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN);
    return store;
}

void requireIssued(const Document &document, X509 *certificate, const Document &by, X509 *authority)
{
    const Store store = storeOf(authority);
    const StoreContext context(X509_STORE_CTX_new());
    X509_STORE_CTX_init(context.get(), store.get(), certificate, nullptr);
    if (X509_verify_cert(context.get()) == 1) {
        return;
    }
    const int error = X509_STORE_CTX_get_error(context.get());
    document.fail(
        fmt::format("was not issued by {}: {}", by.name(), X509_verify_cert_error_string(error)));
}

int password(char *to, int size, int, void *from)
{
    const std::string_view text = static_cast<const char *>(from);
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size));
    std::memcpy(to, text.data(), length);
    return static_cast<int>(length);
}

void requireKey(const Document &document, const char *secret, const Document &certified,
                const X509 *certificate)
{
    const std::string text = secret == nullptr ? "" : secret;
    const Key key(PEM_read_bio_PrivateKey(document.open().get(), nullptr, password,
                                          const_cast<char *>(text.c_str())));
    if (key == nullptr) {
        const int reason = ERR_GET_REASON(ERR_peek_error());
        document.fail(reason == PEM_R_NO_START_LINE
                          ? "is no private key in PEM format"
                          : "cannot be read: it is damaged, or the password is not its own");
    }
    if (X509_check_private_key(certificate, key.get()) != 1) {
        document.fail(fmt::format("does not belong to {}", certified.name()));
    }
}

void requireSigned(const Document &document, const Document &by, X509 *authority)
{
    BIO *detached = nullptr;
    const Signed envelope(SMIME_read_PKCS7(document.open().get(), &detached));
    const Bio content(detached);
    if (envelope == nullptr) {
        document.fail("is not signed (S/MIME)");
    }
    const Store store = storeOf(authority);
    X509_STORE_set_purpose(store.get(), X509_PURPOSE_ANY);
    const Bio out(BIO_new(BIO_s_null()));
    // As the engine does it: the signer is the CA itself.
    STACK_OF(X509) *const signers = sk_X509_new_null();
    sk_X509_push(signers, authority);
    const int good = PKCS7_verify(envelope.get(), signers, store.get(), content.get(), out.get(),
                                  PKCS7_TEXT | PKCS7_NOINTERN);
    sk_X509_free(signers);
    if (good != 1) {
        document.fail(fmt::format("was changed, or was not signed by {}", by.name()));
    }
}

void check(const DDS_SecuritySettings &settings)
{
    const Document identityCa("identity CA", settings.identityCa);
    const Document certificate("certificate", settings.certificate);
    const Document key("key", settings.key);
    const Document governance("governance file", settings.governance);
    const Document permissionsCa("permissions CA", settings.permissionsCa);
    const Document permissions("permissions file", settings.permissions);

    const Certificate identityAuthority = certificateOf(identityCa);
    const Certificate own = certificateOf(certificate);
    requireIssued(certificate, own.get(), identityCa, identityAuthority.get());
    requireKey(key, settings.password, certificate, own.get());
    const Certificate authority = certificateOf(permissionsCa);
    requireSigned(governance, permissionsCa, authority.get());
    requireSigned(permissions, permissionsCa, authority.get());
}

std::string element(const char *name, const std::string &content)
{
    return fmt::format("<{0}>{1}</{0}>", name, content);
}

std::string fileElement(const char *name, const char *value)
{
    return element(name, escape(Document(name, value).uri()));
}

} // namespace

std::string securityProblem(const DDS_SecuritySettings &settings)
{
    ERR_clear_error();
    try {
        check(settings);
    } catch (const Problem &problem) {
        ERR_clear_error();
        return problem.text;
    }
    return "";
}

std::string securityXml(const DDS_SecuritySettings &settings)
{
    std::string authentication = fileElement("IdentityCertificate", settings.certificate) +
                                 fileElement("IdentityCA", settings.identityCa) +
                                 fileElement("PrivateKey", settings.key);
    if (settings.password != nullptr && settings.password[0] != '\0') {
        authentication += element("Password", escape(settings.password));
    }
    return element("Security", element("Authentication", authentication) +
                                   element("AccessControl",
                                           fileElement("PermissionsCA", settings.permissionsCa) +
                                               fileElement("Governance", settings.governance) +
                                               fileElement("Permissions", settings.permissions)));
}

} // namespace qddsdomain
