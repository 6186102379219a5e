#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <unistd.h>

#include "jupyter/ConnectionFile.h"

namespace {

using jupyter::ConnectionFile;
using testing::HasSubstr;
namespace fs = std::filesystem;

class ConnectionFileTest : public testing::Test {
protected:
    ~ConnectionFileTest() override { fs::remove(path_); }

    const fs::path& holding(const std::string& text) {
        std::ofstream(path_) << text;
        return path_;
    }

    const fs::path path_ = fs::temp_directory_path() / ("connection-" + std::to_string(::getpid()) + ".json");
};

TEST_F(ConnectionFileTest, saysWhatMustBe) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"", "Invalid JSON at byte 0"},
        {"[", "Invalid JSON at byte 1"},
        {"[]", "must hold a JSON object"},
        {R"({"shell_port": 65536})", "shell_port must be an integer between 0 and 65535"},
        {R"({"hb_port": -1})", "hb_port must be an integer between 0 and 65535"},
        {R"({"stdin_port": "1"})", "stdin_port must be an integer"},
        {R"({"iopub_port": 1.5})", "iopub_port must be an integer"},
        {R"({"key": null})", "key must be a string"},
        {R"({"transport": "udp"})", "transport must be tcp or ipc"},
        {R"({"signature_scheme": "hmac-md5"})", "signature_scheme must be hmac-sha256"},
    };
    for (const auto& [text, problem] : rows) {
        try {
            ConnectionFile::read(holding(text));
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(path_.string() + ": "));
            EXPECT_THAT(error.what(), HasSubstr(problem));
        }
    }
    fs::remove(path_);
    EXPECT_THROW(ConnectionFile::read(path_), std::runtime_error);
}

TEST_F(ConnectionFileTest, keepsWhatItDoesNotKnowAndItsSecret) {
    auto file = ConnectionFile::read(
        holding(R"({"kernel_name": "numora", "key": "k", "transport": "ipc", "ip": "/tmp/x"})"));
    EXPECT_EQ(file.key, "k");
    file.shellPort = 1234;
    file.write(path_);
    EXPECT_EQ(ConnectionFile::read(path_), file);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    std::ostringstream text;
    text << std::ifstream(path_).rdbuf();
    EXPECT_THAT(text.str(), HasSubstr(R"("kernel_name":"numora")"));
}

}  // namespace
