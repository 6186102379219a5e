#include <filesystem>
#include <fstream>

#include "RunningInterpreter.h"
#include "fl/i18n/text.h"

namespace {

/// Calls while code imports a module.
class ImportTest : public RunningInterpreter {
protected:
    ImportTest() {
        if (mkdtemp(folder_.data()) == nullptr) ADD_FAILURE() << "mkdtemp";
        eval(fl::i18n::to_ustring("import sys, threading\nmay_end = threading.Event()\nsys.path.insert(0, '" +
                                  folder_ + "')"));
        defineBegin();
    }
    ~ImportTest() override { std::filesystem::remove_all(folder_); }

    void writeModule(const std::string& name, const std::string& body) {
        std::ofstream(folder_ + "/" + name + ".py") << body;
    }
    std::future<std::string> startImport(const std::string& body) {
        writeModule("slow_module", "import time, __main__\nearly = lambda: 'early'\n__main__.begin()\n" +
                                       body + "\nlate = lambda: 'late'\n");
        return start([this] { return textOf(u"import slow_module\n'imported'"); });
    }

private:
    std::string folder_ = testing::TempDir() + "numora-import-XXXXXX";
};

TEST_F(ImportTest, aCallInsideSeesNoModuleThatIsHalfThere) {
    auto imported = startImport("time.sleep(0.1)");
    EXPECT_EQ(call(u"slow_module.late", {}, 1, "ppe"), "[\"late\"]");
    EXPECT_EQ(imported.get(), "'imported'\n");
}

TEST_F(ImportTest, aCallInsideALongImportSeesNoPartOfItsOwnThatIsHalfThere) {
    writeModule("keyword", "import time\ntime.sleep(0.2)\nkwlist = softkwlist = []\n");
    auto imported = startImport(
        "import sys, numora\n__main__.may_end.wait()\n"
        "for name in 'keyword', 'numora._completion': sys.modules.pop(name, None)\n"
        "numora.complete('x', 1)");
    EXPECT_EQ(call(u"may_end.set", {}, 0, "ppe"), "[]");
    EXPECT_EQ(call(u"numora.complete", {u"\"late\"", u"4"}, 1, "ppe"),
              R"([{"matches":[],"start":0,"end":4}])");
    EXPECT_EQ(imported.get(), "'imported'\n");
}

}  // namespace
