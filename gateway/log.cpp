#include "log.h"

namespace gateway {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("gateway");
    return instance;
}

}  // namespace gateway
