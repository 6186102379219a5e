#include "jupyter/ConnectionFile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <Poco/JSON/Object.h>
#include <fcntl.h>
#include <unistd.h>

#include "connector/json/parse.h"
#include "connector/json/write.h"

namespace jupyter {

namespace {

using Poco::JSON::Object;

constexpr std::array<std::pair<const char*, std::string ConnectionFile::*>, 4> texts{
    {{"transport", &ConnectionFile::transport},
     {"ip", &ConnectionFile::ip},
     {"key", &ConnectionFile::key},
     {"signature_scheme", &ConnectionFile::signatureScheme}}};

constexpr std::array<std::pair<const char*, int ConnectionFile::*>, 5> ports{
    {{"shell_port", &ConnectionFile::shellPort},
     {"control_port", &ConnectionFile::controlPort},
     {"stdin_port", &ConnectionFile::stdinPort},
     {"iopub_port", &ConnectionFile::iopubPort},
     {"hb_port", &ConnectionFile::heartbeatPort}}};

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& problem) {
    throw std::runtime_error(path.string() + ": " + problem);
}

Object::Ptr parse(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) fail(path, std::string("cannot be read: ") + std::strerror(errno));
    if (std::filesystem::is_directory(path)) fail(path, "must be a file");
    std::ostringstream text;
    text << file.rdbuf();
    try {
        const auto value = connector::json::parse(text.str());
        if (value.type() == typeid(Object::Ptr)) return value.extract<Object::Ptr>();
    } catch (const connector::json::ParseError& error) {
        fail(path, error.what());
    }
    fail(path, "must hold a JSON object");
}

int portIn(const Object& object, const char* name) {
    constexpr Poco::Int64 highest = 65535;
    const auto value = object.get(name);
    const bool isInteger = value.type() == typeid(Poco::Int64);
    if (!isInteger || value.extract<Poco::Int64>() < 0 || value.extract<Poco::Int64>() > highest)
        throw std::runtime_error(std::string(name) + " must be an integer between 0 and 65535");
    return static_cast<int>(value.extract<Poco::Int64>());
}

std::string textIn(const Object& object, const char* name) {
    const auto value = object.get(name);
    if (value.type() != typeid(std::string))
        throw std::runtime_error(std::string(name) + " must be a string");
    return value.extract<std::string>();
}

ConnectionFile from(const Object& object) {
    ConnectionFile result;
    for (const auto& [name, member] : texts) {
        if (object.has(name)) result.*member = textIn(object, name);
    }
    for (const auto& [name, member] : ports) {
        if (object.has(name)) result.*member = portIn(object, name);
    }
    if (result.transport != "tcp" && result.transport != "ipc")
        throw std::runtime_error("transport must be tcp or ipc");
    if (result.signatureScheme != "hmac-sha256")
        throw std::runtime_error("signature_scheme must be hmac-sha256");
    return result;
}

bool writeTo(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

ConnectionFile ConnectionFile::read(const std::filesystem::path& path) {
    const auto object = parse(path);
    try {
        return from(*object);
    } catch (const std::runtime_error& error) {
        fail(path, error.what());
    }
}

void ConnectionFile::write(const std::filesystem::path& path) const {
    Object::Ptr object = new Object;
    if (std::filesystem::exists(path)) object = parse(path);
    for (const auto& [name, member] : texts) object->set(name, this->*member);
    for (const auto& [name, member] : ports) object->set(name, this->*member);
    std::string temporary = path.string() + ".XXXXXX";
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);  // of mode 0600
    bool isGood = descriptor >= 0 && writeTo(descriptor, connector::json::written(object) + "\n");
    if (descriptor >= 0) isGood = ::close(descriptor) == 0 && isGood;
    if (isGood) isGood = ::rename(temporary.c_str(), path.c_str()) == 0;
    if (isGood) return;
    const int problem = errno;
    if (descriptor >= 0) ::unlink(temporary.c_str());
    fail(path, std::string("cannot be written: ") + std::strerror(problem));
}

}  // namespace jupyter
