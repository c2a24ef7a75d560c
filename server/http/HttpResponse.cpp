#include "server/http/HttpResponse.h"

namespace qlm::ingest {

namespace {

HttpResponse withType(int status, std::string body, std::string contentType) {
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    response.headers.emplace_back("Content-Type", std::move(contentType));
    return response;
}

}  // namespace

HttpResponse HttpResponse::text(int status, std::string body) {
    return withType(status, std::move(body), "text/plain; charset=utf-8");
}

HttpResponse HttpResponse::html(int status, std::string body) {
    return withType(status, std::move(body), "text/html; charset=utf-8");
}

HttpResponse HttpResponse::json(int status, std::string body) {
    return withType(status, std::move(body), "application/json");
}

HttpResponse& HttpResponse::withHeader(std::string name, std::string value) {
    headers.emplace_back(std::move(name), std::move(value));
    return *this;
}

std::string_view reasonPhrase(int status) {
    switch (status) {
        case 100:
            return "Continue";
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 204:
            return "No Content";
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 408:
            return "Request Timeout";
        case 411:
            return "Length Required";
        case 413:
            return "Content Too Large";
        case 417:
            return "Expectation Failed";
        case 431:
            return "Request Header Fields Too Large";
        case 500:
            return "Internal Server Error";
        case 503:
            return "Service Unavailable";
        case 505:
            return "HTTP Version Not Supported";
        default:
            return "Unknown";
    }
}

}  // namespace qlm::ingest
