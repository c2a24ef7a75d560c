#include "server/http/StaticFiles.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace qlm::ingest {

namespace {

bool isSafeName(std::string_view name) {
    if (name.empty() || name.front() == '.') return false;
    for (const char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                        c == '.' || c == '_' || c == '-';
        if (!ok) return false;
    }
    return true;
}

// The Content-Type for a file name by its extension; nullopt for a type this server does not serve.
std::optional<std::string> contentTypeFor(std::string_view name) {
    static constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
        // pdf.js ships ES modules as .mjs; browsers load a module only with a JavaScript type.
        {".mjs", "text/javascript; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".html", "text/html; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".map", "application/json"},
        {".json", "application/json"},
    };
    for (const auto& [extension, type] : kTypes) {
        if (name.ends_with(extension)) return std::string(type);
    }
    return std::nullopt;
}

}  // namespace

StaticFiles::StaticFiles(std::string folder) : folder_(std::move(folder)) {}

std::optional<HttpResponse> StaticFiles::serve(std::string_view name) const {
    if (folder_.empty() || !isSafeName(name)) return std::nullopt;
    auto type = contentTypeFor(name);
    if (!type) return std::nullopt;
    const std::filesystem::path path = std::filesystem::path(folder_) / name;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    HttpResponse response;
    response.body.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) return std::nullopt;
    response.headers.emplace_back("Content-Type", std::move(*type));
    // Served from a working tree that may change under a running server: revalidate every time.
    response.headers.emplace_back("Cache-Control", "no-cache");
    return response;
}

}  // namespace qlm::ingest
