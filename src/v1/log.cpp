#include "v1/log.h"

namespace connector::interpreter::v1 {

namespace {

const foundation::log::DiagnosticLogger logger("connector::interpreter");

}  // namespace

const foundation::log::DiagnosticLogger& log() { return logger; }

}  // namespace connector::interpreter::v1
