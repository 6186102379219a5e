#include "connector/interpreter/v1/AsyncEvalService.h"

#include <utility>

#include "connector/wireWords.h"
#include "v1/CountedSwitch.h"
#include "v1/Publisher.h"
#include "v1/StreamingEvalPlugin.h"
#include "v1/catchAndLog.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

using connector::common::DataBuffer;
using message_service::MessageService;

namespace {

// Does not hold the service, which a batch may outlive.
CoalescingTextBuffer::Callback batchPublisher(std::shared_ptr<Publisher> publisher) {
    return [publisher = std::move(publisher)](DataBuffer&& batch, nmutil::io::StreamTypeEnum type) {
        publisher->publish(type == nmutil::io::STANDARD_OUTPUT ? wire::channel::output : wire::channel::error,
                           batch);
    };
}

}  // namespace

std::shared_ptr<AsyncEvalService> AsyncEvalService::create(AsyncEvalServices services,
                                                           std::shared_ptr<CoalescingTextBuffer> coalescer) {
    auto future = services.messageServiceFactory->create("eval", {});
    std::shared_ptr<AsyncEvalService> service(
        new AsyncEvalService(std::move(services), std::move(coalescer)));
    future.then([weak = service->weak_from_this()](Future<std::shared_ptr<MessageService>> ready) {
        catchAndLog("AsyncEvalService::subscribe", [&] {
            const auto messages = ready.get();
            const auto self = weak.lock();
            if (self && messages) self->subscribe(messages);
        });
    });
    return service;
}

AsyncEvalService::AsyncEvalService(AsyncEvalServices services,
                                   std::shared_ptr<CoalescingTextBuffer> coalescer)
    : services_(std::move(services)),
      publisher_(std::make_shared<Publisher>()),
      coalescer_(std::move(coalescer)),
      plugin_(iqm::PacketInfo::registerPlugin2(
          StreamingEvalPlugin::registeredName,
          [](iqm::PluginOptions options, nmutil::contextmgr::NcrID) {
              return std::make_unique<StreamingEvalPlugin>(std::move(options));
          },
          true)),
      listening_(std::make_unique<CountedSwitch>([this] { listen(); }, [this] { stopToListen(); })) {
    asyncLog().debug("Constructing async eval");
    coalescer_->deliverInOrder();
    coalescer_->setCallback(batchPublisher(publisher_));
}

void AsyncEvalService::subscribe(const std::shared_ptr<MessageService>& messages) {
    const auto weak = weak_from_this();
    publisher_->open(messages);
    requests_ =
        messages->subscribe(wire::channel::evalRequest, [weak](const message_service::JsonMessage& message) {
            if (const auto self = weak.lock()) self->handleEvalRequest(message);
        });
    watch_ = messages->watch(
        wire::channel::allEvalResponses,
        [weak](const message_service::SubscribeEvent& event) {
            if (const auto self = weak.lock()) self->handleClientSubscribe(event);
        },
        [weak](const message_service::UnsubscribeEvent& event) {
            if (const auto self = weak.lock()) self->handleClientUnsubscribe(event);
        });
}

AsyncEvalService::~AsyncEvalService() {
    requests_.reset();
    watch_.reset();
    while (stopListening() > 0) {
    }
    publisher_->close();
}

void AsyncEvalService::publish(const std::string& channel, const DataBuffer& data) {
    publisher_->publish(channel, data);
}

void AsyncEvalService::flush() { coalescer_->flush(); }

}  // namespace connector::interpreter::v1
