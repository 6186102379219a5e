#include <utility>
#include <vector>

#include "services/io/CmdWinSink.h"

namespace services::io {

namespace {

struct Window {
    std::shared_ptr<CmdWinSinkFactory> factory;
    std::shared_ptr<CmdWinSink> out;
    std::shared_ptr<CmdWinSink> err;
};

std::vector<Window>& windows() {
    static std::vector<Window> stack;
    return stack;
}

}  // namespace

void CmdWinSinkHandle::setFactory(const std::shared_ptr<CmdWinSinkFactory>& factory) {
    Window window{factory, factory->getSink(false), factory->getSink(true)};
    if (!windows().empty()) windows().back().out->deactivate();
    windows().push_back(std::move(window));
    windows().back().out->activate();
}

void CmdWinSinkHandle::restorePreviousFactory() {
    if (windows().size() < 2) return;
    windows().back().out->deactivate();
    windows().pop_back();
    windows().back().out->activate();
}

const std::shared_ptr<CmdWinSink>& CmdWinSinkHandle::activeSink(bool isError) {
    static const std::shared_ptr<CmdWinSink> none;
    if (windows().empty()) return none;
    return isError ? windows().back().err : windows().back().out;
}

void CmdWinSinkHandle::reset() { windows().clear(); }

}  // namespace services::io
