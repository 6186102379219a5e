#include "KernelInfo.h"

#include <utility>

#include "JsonMembers.h"
#include "functionCalls.h"

namespace jupyter {

using Members = Publisher::Members;

namespace {

constexpr auto longestWait = std::chrono::milliseconds(1000);

std::string helpLink(std::string_view text, std::string_view url) {
    return Members().add("text", text).add("url", url).take();
}

}  // namespace

void KernelInfo::ask(Answered answered) {
    if (state_ == State::Known) return answered(content());
    waiting_.push_back(std::move(answered));
    if (state_ == State::Unknown) askVersion();
    if (waiting_.size() > 1) return;
    executor_.postAfter(longestWait, lifetime_.guarded([this] { answerAll(); }));
}

void KernelInfo::askVersion() {
    state_ = State::Asked;
    callFunction(interpreter_, {.name = "sys.version.split"},
                 lifetime_.guarded([this](const CallResult& result) {
                     const std::string_view words = elementsOf(result.json);
                     if (result.problem.empty() && words.starts_with('"')) {
                         version_ = textOf(words.substr(0, words.find('"', 1) + 1));
                     }
                     state_ = result.problem.empty() ? State::Known : State::Unknown;
                     answerAll();
                 }));
}

void KernelInfo::answerAll() {
    for (const auto& answered : std::exchange(waiting_, {})) answered(content());
}

Members KernelInfo::content() const {
    const Members mode = Members().add("name", "ipython").add("version", 3);
    Members language;
    language.add("name", "python").add("version", version_).add("mimetype", "text/x-python");
    language.add("file_extension", ".py").add("pygments_lexer", "ipython3").add("codemirror_mode", mode);
    language.add("nbconvert_exporter", "python");
    Members info;
    info.add("status", "ok").add("protocol_version", "5.5").add("implementation", "numora");
    info.add("implementation_version", NUMORA_VERSION).add("language_info", language);
    info.add("banner", "Numora " NUMORA_VERSION ", Python " + version_).add("debugger", false);
    info.addJson("help_links", '[' + helpLink("Python", "https://docs.python.org/3/") + ']');
    return info.addJson("supported_features", "[]");
}

}  // namespace jupyter
