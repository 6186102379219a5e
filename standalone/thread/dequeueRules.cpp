#include "thread/dequeueRules.h"

namespace standalone {

using cmddistributor::WhenToDequeue;
using namespace nmutil::prompt;  // the prompt values

namespace {

bool isDebugPrompt(InputRequester prompt) {
    return prompt == DEBUG_PROMPT || prompt == KINETRIX_DEBUG_PROMPT || prompt == DISCRETIX_DEBUG_PROMPT ||
           prompt == ZF_ENL_DEBUG_PROMPT;
}

bool isBasePrompt(InputRequester prompt) {
    return prompt == BASE_PROMPT || prompt == INCOMPLETE_BLOCK_PROMPT || prompt == MORE_PROMPT;
}

}  // namespace

bool mayRun(WhenToDequeue when, InputRequester prompt) {
    switch (when) {
        case WhenToDequeue::Default:
        case WhenToDequeue::Idle:
            return isBasePrompt(prompt);
        case WhenToDequeue::Ppe:
            return true;
        case WhenToDequeue::Pause:
            return isBasePrompt(prompt) || prompt == PAUSE_PROMPT;
        case WhenToDequeue::Prompt:
            return prompt != NO_PROMPT;
        case WhenToDequeue::NonDebugPrompt:
            return prompt != NO_PROMPT && !isDebugPrompt(prompt);
        case WhenToDequeue::DebugPrompt:
            return isDebugPrompt(prompt);
    }
    return false;
}

}  // namespace standalone
