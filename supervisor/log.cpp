#include "log.h"

namespace supervisor {

const foundation::log::DiagnosticLogger& log() {
    static const foundation::log::DiagnosticLogger instance("supervisor");
    return instance;
}

}  // namespace supervisor
