// What a relay shows over HTTP, to be read only. The library that speaks it is loaded when a
// configuration asks for it; this is the interface between the two, of the same build.
#ifndef FERRY_CONTROL_HTTP_SERVER_H
#define FERRY_CONTROL_HTTP_SERVER_H

#include <functional>
#include <string>

#include "config/configuration.h"

namespace ferry {

struct HttpAnswer {
    unsigned status = 404;
    const char *type = "text/plain; charset=utf-8";
    std::string body = "there is no such page\n";
};

/// What a path shows. Runs on the server's thread.
using HttpPages = std::function<HttpAnswer(const std::string &path)>;

class HttpServer {
public:
    virtual ~HttpServer() = default;
};

/// Null after putting into `problem` why there is none. The server ends with the object.
using StartHttp = HttpServer *(const HttpSettings &settings, const HttpPages &pages,
                               std::string &problem);
constexpr const char *httpLibrary = "libferryhttp.so";
constexpr const char *httpEntry = "ferry_start_http";

} // namespace ferry

#endif
