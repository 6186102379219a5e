#pragma once

#include <filesystem>
#include <string_view>

#include "HttpReply.h"

namespace gateway::endpoints {

/// What a browser says of the file that it wants: headers of its request, as RFC 9110 has them.
struct FileTerms {
    std::string_view acceptEncoding{};
    std::string_view ifNoneMatch{};
};

/// The files of the browser console, from one folder.
///
/// A path is taken literally: segments of letters, digits and `-_.` that do not begin with a dot; others are
/// not found. So is a file that a symbolic link takes out of the folder.
///
/// Threads: every operation from any thread.
class StaticFiles {
public:
    /// An empty `folder` stands for none: then there is one page, which says so.
    /// Throws: std::filesystem::filesystem_error, when the folder is not there.
    explicit StaticFiles(const std::filesystem::path& folder);

    /// The file at `path`, or 404; "index.html" where it ends with a slash. A file with ".br" or ".gz" after
    /// its name stands for it where the client takes Brotli or gzip. 304 for one that the client has. What is
    /// below "assets" never changes under its name, and browsers need not ask for it again.
    /// Blocks: while it is read.
    HttpReply get(std::string_view path, const FileTerms& terms = {}) const;

private:
    HttpReply read(const std::filesystem::path& file, const FileTerms& terms) const;

    const std::filesystem::path folder_;  ///< without symbolic links
};

}  // namespace gateway::endpoints
