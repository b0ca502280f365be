// libferryhttp: GNU libmicrohttpd, one thread for all clients, whose number, memory and time are
// bounded.
#include "control/http_server.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <utility>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>

namespace ferry {
namespace {

constexpr unsigned mostClients = 32;
/// Seconds.
constexpr unsigned clientTimeout = 10;
constexpr std::size_t clientMemory = std::size_t{32} << 10;

class MicroHttpServer : public HttpServer {
public:
    MicroHttpServer(const HttpSettings &settings, HttpPages pages)
        : settings_(settings), pages_(std::move(pages))
    {
    }
    ~MicroHttpServer() override
    {
        if (daemon_ != nullptr) {
            MHD_stop_daemon(daemon_);
        }
    }
    MicroHttpServer(const MicroHttpServer &) = delete;
    MicroHttpServer &operator=(const MicroHttpServer &) = delete;

    /// Why not, or "".
    std::string start();

private:
    static MHD_Result onRequest(void *self, MHD_Connection *connection, const char *url,
                                const char *method, const char *version, const char *body,
                                std::size_t *bodySize, void **request);
    std::string readToken();
    HttpAnswer answer(MHD_Connection *connection, const std::string &path,
                      const std::string &method) const;
    bool knows(const char *authorization) const;
    bool isOwnName(const char *host) const;
    static MHD_Result send(MHD_Connection *connection, const HttpAnswer &answer);

    const HttpSettings settings_;
    const HttpPages pages_;
    std::string token_;
    MHD_Daemon *daemon_ = nullptr;
};

std::string MicroHttpServer::readToken()
{
    std::ifstream file(settings_.tokenFile);
    std::stringstream text;
    text << file.rdbuf();
    token_ = text.str();
    token_.erase(token_.find_last_not_of(" \t\r\n") + 1);
    return token_.empty() ? fmt::format("token_file {}: no token in it, or it cannot be read",
                                        settings_.tokenFile.string())
                          : "";
}

std::string MicroHttpServer::start()
{
    if (!settings_.tokenFile.empty()) {
        std::string problem = readToken();
        if (!problem.empty()) {
            return problem;
        }
    }
    sockaddr_in six4{};
    sockaddr_in6 six6{};
    const bool isSix = settings_.address.find(':') != std::string::npos;
    six4.sin_family = AF_INET;
    six4.sin_port = htons(settings_.port);
    six6.sin6_family = AF_INET6;
    six6.sin6_port = htons(settings_.port);
    inet_pton(isSix ? AF_INET6 : AF_INET, settings_.address.c_str(),
              isSix ? static_cast<void *>(&six6.sin6_addr) : &six4.sin_addr);
    const auto *const address = isSix ? reinterpret_cast<const sockaddr *>(&six6)
                                      : reinterpret_cast<const sockaddr *>(&six4);
    const unsigned flags = MHD_USE_POLL | MHD_USE_INTERNAL_POLLING_THREAD |
                           (isSix ? static_cast<unsigned>(MHD_USE_IPv6) : 0U);
    errno = 0;
    daemon_ = MHD_start_daemon(flags, settings_.port, nullptr, nullptr, onRequest, this,
                               MHD_OPTION_SOCK_ADDR, address, MHD_OPTION_CONNECTION_LIMIT,
                               mostClients, MHD_OPTION_CONNECTION_TIMEOUT, clientTimeout,
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, clientMemory, MHD_OPTION_END);
    return daemon_ != nullptr
               ? ""
               : fmt::format("cannot listen at {}: {}", settings_.listen, std::strerror(errno));
}

/// In a time that does not depend on how much of the token is right.
bool MicroHttpServer::knows(const char *authorization) const
{
    const std::string given = authorization == nullptr ? "" : authorization;
    const std::string wanted = "Bearer " + token_;
    unsigned difference = given.size() == wanted.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i) {
        difference |= static_cast<unsigned char>(given[i] ^ wanted[i % wanted.size()]);
    }
    return difference == 0;
}

/// A page of somebody else may have its own name lead here, and read what it is shown. Without a
/// token only who asks for this machine by its address, or as localhost, gets anything.
bool MicroHttpServer::isOwnName(const char *host) const
{
    std::string name = host == nullptr ? "" : host;
    const std::size_t end = name.find_last_of("]:");
    if (end != std::string::npos && name[end] == ':') {
        name.erase(end);
    }
    return name == "localhost" || name == settings_.address ||
           name == "[" + settings_.address + "]";
}

HttpAnswer MicroHttpServer::answer(MHD_Connection *connection, const std::string &path,
                                   const std::string &method) const
{
    const auto header = [connection](const char *name) {
        return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    };
    HttpAnswer answer;
    if (!token_.empty() && !knows(header(MHD_HTTP_HEADER_AUTHORIZATION))) {
        answer.status = MHD_HTTP_UNAUTHORIZED;
        answer.body = "the token is missing, or another one\n";
    } else if (token_.empty() && !isOwnName(header(MHD_HTTP_HEADER_HOST))) {
        answer.status = MHD_HTTP_FORBIDDEN;
        answer.body = "this server is asked by its address, or as localhost\n";
    } else if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        answer.status = MHD_HTTP_METHOD_NOT_ALLOWED;
        answer.body = "there is nothing here but to be read\n";
    } else {
        return pages_(path);
    }
    return answer;
}

MHD_Result MicroHttpServer::send(MHD_Connection *connection, const HttpAnswer &answer)
{
    MHD_Response *const response = MHD_create_response_from_buffer(
        answer.body.size(), const_cast<char *>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    if (answer.status == MHD_HTTP_UNAUTHORIZED) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    } else if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    }
    const MHD_Result result = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return result;
}

/// Called when the headers are there, and for each part of a body, which nobody wants.
MHD_Result MicroHttpServer::onRequest(void *self, MHD_Connection *connection, const char *url,
                                      const char *method, const char *, const char *, std::size_t *,
                                      void **)
{
    const MicroHttpServer &server = *static_cast<MicroHttpServer *>(self);
    return send(connection, server.answer(connection, url, method));
}

} // namespace
} // namespace ferry

extern "C" __attribute__((visibility("default"))) ferry::StartHttp ferry_start_http;

ferry::HttpServer *ferry_start_http(const ferry::HttpSettings &settings,
                                    const ferry::HttpPages &pages, std::string &problem)
{
    auto server = std::make_unique<ferry::MicroHttpServer>(settings, pages);
    problem = server->start();
    return problem.empty() ? server.release() : nullptr;
}
