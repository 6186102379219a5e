#include "endpoints/StaticFiles.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

#include "HttpRequest.h"

namespace gateway::endpoints {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t largestFile = std::uintmax_t{32} << 20;

constexpr std::array<std::pair<std::string_view, std::string_view>, 16> contentTypes = {{
    {".html", "text/html;charset=UTF-8"},
    {".js", "text/javascript;charset=UTF-8"},
    {".mjs", "text/javascript;charset=UTF-8"},
    {".css", "text/css;charset=UTF-8"},
    {".json", "application/json"},
    {".map", "application/json"},
    {".webmanifest", "application/manifest+json"},
    {".txt", "text/plain;charset=UTF-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
    {".gif", "image/gif"},
    {".ico", "image/x-icon"},
    {".woff", "font/woff"},
    {".woff2", "font/woff2"},
    {".wasm", "application/wasm"},
}};

std::string contentTypeOf(const fs::path& file) {
    const std::string extension = file.extension().string();
    const auto* const found = std::ranges::find_if(
        contentTypes, [&](const auto& entry) { return equalsIgnoringCase(entry.first, extension); });
    return std::string(found == contentTypes.end() ? "application/octet-stream" : found->second);
}

bool isPlainSegment(std::string_view segment) {
    return !segment.empty() && segment.front() != '.' && std::ranges::all_of(segment, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '_' || c == '.';
    });
}

// The file that a path names, below the folder; empty for a path that names none.
fs::path relativePath(std::string_view path) {
    fs::path relative;
    path.remove_prefix(1);
    while (true) {
        const std::string_view segment = path.substr(0, path.find('/'));
        const bool isLast = segment.size() == path.size();
        if (isLast && segment.empty()) return relative / "index.html";
        if (!isPlainSegment(segment)) return {};
        relative /= segment;
        if (isLast) return relative;
        path.remove_prefix(segment.size() + 1);
    }
}

bool isBelow(const fs::path& file, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), file.begin(), file.end()).first == folder.end();
}

}  // namespace

StaticFiles::StaticFiles(const fs::path& folder)
    : folder_(folder.empty() ? fs::path() : fs::canonical(folder)) {}

HttpReply StaticFiles::get(std::string_view path) const {
    if (folder_.empty()) {
        if (path != "/") return errorReply(404, "There is no such page.");
        return pageReply(200, "Numora Connector",
                         "The server runs. The console for browsers is not installed.");
    }
    const fs::path relative = path.starts_with('/') ? relativePath(path) : fs::path();
    std::error_code error;
    const fs::path file = relative.empty() ? fs::path() : fs::canonical(folder_ / relative, error);
    if (file.empty() || error || !isBelow(file, folder_)) return errorReply(404, "There is no such page.");
    return read(file);
}

HttpReply StaticFiles::read(const fs::path& file) const {
    std::error_code error;
    if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > largestFile || error) {
        return errorReply(404, "There is no such page.");
    }
    std::ifstream stream(file, std::ios::binary);
    HttpReply reply{.status = 200,
                    .body = std::string(std::istreambuf_iterator<char>(stream), {}),
                    .contentType = contentTypeOf(file)};
    if (!stream) return errorReply(404, "There is no such page.");
    addPageHeaders(reply);
    return reply;
}

}  // namespace gateway::endpoints
