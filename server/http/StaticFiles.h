#pragma once
// Files of one folder served by name: the replay page's scripts and styles, and pdf.js. A name is a
// single path segment of letters, digits, '.', '_' and '-' that does not start with '.', so no
// request reaches outside the folder; only the file types the page uses are served, each with its
// Content-Type. Immutable after construction and safe from any thread.
#include <optional>
#include <string>
#include <string_view>

#include "server/http/HttpResponse.h"

namespace qlm::ingest {

class StaticFiles {
public:
    // An empty `folder` serves nothing.
    explicit StaticFiles(std::string folder = {});

    // The file's reply, or nullopt when the name is not allowed or no such regular file is there.
    std::optional<HttpResponse> serve(std::string_view name) const;

private:
    const std::string folder_;  // immutable
};

}  // namespace qlm::ingest
