#include "v1/log.h"

namespace connector::interpreter::v1 {

namespace {

const foundation::log::DiagnosticLogger logger("connector::interpreter");
const foundation::log::DiagnosticLogger asyncLogger("connector::interpreter::async");

}  // namespace

const foundation::log::DiagnosticLogger& log() { return logger; }

const foundation::log::DiagnosticLogger& asyncLog() { return asyncLogger; }

}  // namespace connector::interpreter::v1
