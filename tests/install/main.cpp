#include <memory>

#include <connector/interpreter/Module.h>
#include <standalone/StandaloneHost.h>

int main() {
    standalone::blockInterpreterSignals();
    standalone::StandaloneHost host;
    auto serializer = std::make_shared<connector::json::JsonSerializer>();
    connector::interpreter::Module module({host.framework(), host.configuration(), serializer, host.zvm()});
    return host.zvm()->isAvailable() ? 0 : 1;
}
