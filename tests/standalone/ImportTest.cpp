#include <fstream>
#include <future>
#include <string>

#include <unistd.h>

#include "RunningInterpreter.h"
#include "fl/i18n/text.h"

namespace {

/// Calls while code imports a module, which makes the file that its variable `begun` names.
class ImportTest : public RunningInterpreter {
protected:
    ~ImportTest() override {
        joinBackground();
        unlink((folder_ + "slow_module.py").c_str());
        unlink(begunFile_.c_str());
        rmdir(folder_.c_str());
    }

    void import(const std::string& body) {
        std::ofstream(folder_ + "slow_module.py")
            << "import time\nearly = lambda: 'early'\nopen('" << begunFile_ << "', 'w').close()\n"
            << body << "\nlate = lambda: 'late'\n";
        eval(fl::i18n::to_ustring("import sys, threading\nsys.path.insert(0, '" + folder_ +
                                  "')\nmay_end = threading.Event()"));
        inBackground([this] { answered_.set_value(textOf(u"import slow_module\n'imported'")); });
        ASSERT_TRUE(eventually([this] { return access(begunFile_.c_str(), F_OK) == 0; }));
    }
    std::string imported() { return answered_.get_future().get(); }

private:
    static std::string makeFolder() {
        std::string name = testing::TempDir() + "numora-import-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "mkdtemp";
        return name + '/';
    }

    const std::string folder_ = makeFolder();
    const std::string begunFile_ = folder_ + "begun";
    std::promise<std::string> answered_;
};

TEST_F(ImportTest, aCallInsideSeesNoModuleThatIsHalfThere) {
    import("time.sleep(0.1)");
    EXPECT_EQ(call(u"slow_module.late", {}, 1, "ppe"), "[\"late\"]");
    EXPECT_EQ(imported(), "'imported'\n");
}

TEST_F(ImportTest, anImportThatGoesOnLetsCallsIn) {
    import("import __main__\n__main__.may_end.wait()");
    EXPECT_EQ(call(u"slow_module.early", {}, 1, "ppe"), "[\"early\"]");
    EXPECT_EQ(call(u"may_end.set", {}, 0, "ppe"), "[]");
    EXPECT_EQ(imported(), "'imported'\n");
}

}  // namespace
