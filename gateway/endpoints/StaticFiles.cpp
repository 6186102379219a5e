#include "endpoints/StaticFiles.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

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

/// The elements of a list in a header, without the white space around them.
std::vector<std::string_view> elementsOf(std::string_view list) {
    std::vector<std::string_view> elements;
    while (!list.empty()) {
        std::string_view element = list.substr(0, list.find(','));
        list.remove_prefix(std::min(element.size() + 1, list.size()));
        const auto first = element.find_first_not_of(" \t");
        if (first == std::string_view::npos) continue;
        elements.push_back(element.substr(first, element.find_last_not_of(" \t") - first + 1));
    }
    return elements;
}

// A coding with "q=0" is one that the client does not take; other weights do not matter here.
bool takes(std::string_view acceptEncoding, std::string_view coding) {
    return std::ranges::any_of(elementsOf(acceptEncoding), [&](std::string_view element) {
        const std::string_view name = element.substr(0, element.find_first_of("; \t"));
        const auto weight = element.find("q=");
        const bool isRefused = weight != std::string_view::npos &&
                               element.find_first_not_of("0.", weight + 2) == std::string_view::npos;
        return equalsIgnoringCase(name, coding) && !isRefused;
    });
}

bool holds(std::string_view ifNoneMatch, std::string_view tag) {
    return std::ranges::any_of(elementsOf(ifNoneMatch), [&](std::string_view element) {
        if (element.starts_with("W/")) element.remove_prefix(2);
        return element == "*" || element == tag;
    });
}

struct EncodedFile {
    fs::path file;
    std::string coding{};  ///< empty: as it is
};

// One that is older than what it was made of is of an earlier version.
EncodedFile encodedFile(const fs::path& file, std::string_view acceptEncoding) {
    for (const auto& [coding, ending] : {std::pair("br", ".br"), std::pair("gzip", ".gz")}) {
        const fs::path encoded = file.string() + ending;
        std::error_code error;
        if (takes(acceptEncoding, coding) && fs::is_regular_file(fs::symlink_status(encoded, error)) &&
            fs::last_write_time(encoded, error) >= fs::last_write_time(file, error) && !error)
            return {encoded, coding};
    }
    return {file};
}

std::string tagOf(const fs::path& file) {
    std::error_code error;
    const auto time = fs::last_write_time(file, error).time_since_epoch().count();
    return "\"" + std::to_string(time) + "-" + std::to_string(fs::file_size(file, error)) + "\"";
}

bool isBelow(const fs::path& file, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), file.begin(), file.end()).first == folder.end();
}

}  // namespace

StaticFiles::StaticFiles(const fs::path& folder)
    : folder_(folder.empty() ? fs::path() : fs::canonical(folder)) {}

HttpReply StaticFiles::get(std::string_view path, const FileTerms& terms) const {
    if (folder_.empty()) {
        if (path != "/") return errorReply(404, "There is no such page.");
        return pageReply(200, "Numora Connector",
                         "The server runs. The console for browsers is not installed.");
    }
    const fs::path relative = path.starts_with('/') ? relativePath(path) : fs::path();
    std::error_code error;
    const fs::path file = relative.empty() ? fs::path() : fs::canonical(folder_ / relative, error);
    if (file.empty() || error || !isBelow(file, folder_)) return errorReply(404, "There is no such page.");
    return read(file, terms);
}

HttpReply StaticFiles::read(const fs::path& file, const FileTerms& terms) const {
    std::error_code error;
    if (!fs::is_regular_file(file, error) || fs::file_size(file, error) > largestFile || error) {
        return errorReply(404, "There is no such page.");
    }
    const auto chosen = encodedFile(file, terms.acceptEncoding);
    const std::string tag = tagOf(chosen.file);
    HttpReply reply{.status = 200, .contentType = contentTypeOf(file)};
    addPageHeaders(reply, isBelow(file, folder_ / "assets") ? "private, max-age=31536000, immutable"
                                                            : "private, no-cache");
    reply.headers.emplace_back("ETag", tag);
    reply.headers.emplace_back("Vary", "Accept-Encoding");
    if (!chosen.coding.empty()) reply.headers.emplace_back("Content-Encoding", chosen.coding);
    if (holds(terms.ifNoneMatch, tag)) {
        reply.status = 304;
        return reply;
    }
    std::ifstream stream(chosen.file, std::ios::binary);
    reply.body = std::string(std::istreambuf_iterator<char>(stream), {});
    return stream ? reply : errorReply(404, "There is no such page.");
}

}  // namespace gateway::endpoints
