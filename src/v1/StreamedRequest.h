#pragma once

#include <memory>
#include <string>
#include <utility>

#include "cmddistributor/RunOptions.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "connector/interpreter/v1/CoalescingTextBuffer.h"
#include "nmutil/io/NMSink.h"
#include "v1/FlushingStreamBuf.h"
#include "v1/HeldContext.h"
#include "v1/catchAndLog.h"

namespace connector::interpreter::v1 {

/// The stream buffers of one evaluation. They share the coalescer, because the interpreter may hold on to
/// them for longer than the service lives.
struct PrintedText {
    PrintedText(std::shared_ptr<CoalescingTextBuffer> buffer,
                const std::shared_ptr<common::ContextState>& context)
        : coalescer(std::move(buffer)),
          out(*coalescer, nmutil::io::STANDARD_OUTPUT, context),
          err(*coalescer, nmutil::io::STANDARD_ERROR, context) {}

    static std::shared_ptr<nmutil::io::NMSink> sink(const std::shared_ptr<PrintedText>& self,
                                                    FlushingStreamBuf PrintedText::*stream) {
        return std::make_shared<nmutil::io::NMSink>(
            std::shared_ptr<nmutil::io::UnicodeStreamBuf>(self, &((*self).*stream)),
            cmddistributor::RunOptions::getDefaultSinkTraits());
    }
    void stop() {
        out.stop();
        err.stop();
    }

    const std::shared_ptr<CoalescingTextBuffer> coalescer;
    FlushingStreamBuf out;
    FlushingStreamBuf err;
};

/// Tells the tracker of the end of a request, once, wherever the request is dropped or ends.
class TrackedEnd {
public:
    TrackedEnd(std::shared_ptr<common::RequestTracker> tracker, std::string clientType,
               std::shared_ptr<common::ContextState> context)
        : tracker_(clientType.empty() ? nullptr : std::move(tracker)),
          clientType_(std::move(clientType)),
          context_(std::move(context)) {}
    ~TrackedEnd() { tell(); }
    TrackedEnd(const TrackedEnd&) = delete;
    TrackedEnd& operator=(const TrackedEnd&) = delete;

    void tell() {
        const auto tracker = std::exchange(tracker_, nullptr);
        if (tracker) catchAndLog("requestEnded", [&] { tracker->requestEnded(clientType_, context_); });
    }
    /// Leaves it to another.
    void release() { tracker_ = nullptr; }

private:
    std::shared_ptr<common::RequestTracker> tracker_;
    const std::string clientType_;
    const std::shared_ptr<common::ContextState> context_;
};

/// What is kept of a request until it has ended.
struct StreamedRequest {
    StreamedRequest(std::shared_ptr<common::RequestTracker> tracker, const std::string& clientType,
                    HeldContext heldContext, std::shared_ptr<common::ContextState> itsContext,
                    std::shared_ptr<PrintedText> text)
        : context(std::move(itsContext)),
          end(std::move(tracker), clientType, context),
          ofClient(context->getOr<std::shared_ptr<common::ClientRequests>>(common::ClientRequests::contextKey,
                                                                           nullptr)),
          held(std::move(heldContext)),
          printed(std::move(text)) {}

    /// The client may send another, also of this name, as soon as it knows of the completion.
    void endForClient() {
        ofClient.end();
        const auto origin = common::RequestOrigin::of(*context);
        if (origin && origin->reservation) origin->reservation->release();
    }

    const std::shared_ptr<common::ContextState> context;
    TrackedEnd end;
    common::ClientRequests::Entry ofClient;
    HeldContext held;
    std::shared_ptr<PrintedText> printed;  ///< null for typed characters
};

}  // namespace connector::interpreter::v1
