#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "endpoints/StaticFiles.h"

namespace {

namespace fs = std::filesystem;
using gateway::endpoints::StaticFiles;

class StaticFilesTest : public testing::Test {
protected:
    StaticFilesTest() {
        std::string pattern = testing::TempDir() + "numora-files-XXXXXX";
        root_ = ::mkdtemp(pattern.data());
        write("secret.txt", "secret");
        write("console/index.html", "<p>home");
        write("console/app.js", "run()");
        write("console/sub/index.html", "<p>sub");
        write("console/.hidden", "hidden");
        write("console/data.unknown", std::string("\0\xff", 2));
        fs::create_symlink("../secret.txt", root_ / "console/outside.txt");
        fs::create_symlink("app.js", root_ / "console/inside.js");
    }
    ~StaticFilesTest() override { fs::remove_all(root_); }

    void write(const std::string& name, const std::string& text) const {
        fs::create_directories((root_ / name).parent_path());
        std::ofstream(root_ / name, std::ios::binary) << text;
    }

    fs::path root_;
};

TEST_F(StaticFilesTest, givesFilesWithTheirTypes) {
    const StaticFiles files(root_ / "console");
    EXPECT_EQ(files.get("/").body, "<p>home");
    EXPECT_EQ(files.get("/").contentType, "text/html;charset=UTF-8");
    EXPECT_EQ(files.get("/sub/").body, "<p>sub");
    EXPECT_EQ(files.get("/app.js").contentType, "text/javascript;charset=UTF-8");
    EXPECT_EQ(files.get("/inside.js").body, "run()");
    EXPECT_EQ(files.get("/data.unknown").body, std::string("\0\xff", 2));
    EXPECT_EQ(files.get("/data.unknown").contentType, "application/octet-stream");
    write("console/app.js", "walk()");
    EXPECT_EQ(files.get("/app.js").body, "walk()");
}

TEST_F(StaticFilesTest, givesWhatTheClientTakesAndDoesNotHave) {
    write("console/assets/app-1.js", "run()");
    write("console/assets/app-1.js.br", "br");
    write("console/assets/app-1.js.gz", "gz");
    const StaticFiles files(root_ / "console");
    struct {
        std::string_view accepted, body, coding;
    } const rows[] = {
        {"", "run()", ""},
        {"gzip, deflate, br", "br", "br"},
        {"gzip;q=1.0 ,br;q=0.000", "gz", "gzip"},
        {" , BR ;q=0.1,", "br", "br"},
        {"identity, brx, gzip;q=0", "run()", ""},
    };
    const auto header = [](const auto& reply, std::string_view name) {
        for (const auto& [key, value] : reply.headers)
            if (key == name) return value;
        return std::string();
    };
    for (const auto& [accepted, body, coding] : rows) {
        SCOPED_TRACE(accepted);
        const auto reply = files.get("/assets/app-1.js", {.acceptEncoding = accepted});
        EXPECT_EQ(reply.body, body);
        EXPECT_EQ(header(reply, "Content-Encoding"), coding);
        EXPECT_EQ(reply.contentType, "text/javascript;charset=UTF-8");
        EXPECT_NE(header(reply, "Cache-Control").find("immutable"), std::string::npos);
        const std::string tags = "\"other\", W/" + header(reply, "ETag");
        const auto again = files.get("/assets/app-1.js", {.acceptEncoding = accepted, .ifNoneMatch = tags});
        EXPECT_EQ(again.status, 304);
        EXPECT_EQ(again.body, "");
        EXPECT_EQ(files.get("/app.js", {.ifNoneMatch = tags}).status, 200);
    }
    EXPECT_EQ(header(files.get("/"), "Cache-Control").find("immutable"), std::string::npos);
    fs::last_write_time(root_ / "console/assets/app-1.js.br", fs::file_time_type::min());
    EXPECT_EQ(files.get("/assets/app-1.js", {.acceptEncoding = "br"}).body, "run()") << "an old one";
}

TEST_F(StaticFilesTest, givesNothingElse) {
    const StaticFiles files(root_ / "console");
    for (const std::string path :
         {"", "app.js", "/none.js", "/sub", "/sub/none/", "//app.js", "/sub//index.html", "/./app.js",
          "/sub/../app.js", "/../secret.txt", "/../console/app.js", "/%2e%2e/secret.txt", "/..%2fsecret.txt",
          "/..\\secret.txt", "/outside.txt", "/.hidden", "/app.js/", "/app.js ", "/etc/passwd"}) {
        EXPECT_EQ(files.get(path).status, 404) << path;
    }
    EXPECT_EQ(files.get(std::string("/app.js\0", 8)).status, 404);
    EXPECT_EQ(files.get("/" + std::string(100'000, 'a')).status, 404);
}

TEST_F(StaticFilesTest, saysThatTheConsoleIsNotInstalledWithoutAFolder) {
    const StaticFiles files{fs::path()};
    EXPECT_NE(files.get("/").body.find("not installed"), std::string::npos);
    EXPECT_EQ(files.get("/app.js").status, 404);
    EXPECT_THROW(StaticFiles(root_ / "none"), fs::filesystem_error);
}

}  // namespace
