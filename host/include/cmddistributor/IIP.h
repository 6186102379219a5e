#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "cmddistributor/IqmStreamID.h"
#include "nmutil/io/NMSink.h"

namespace cmddistributor {

/// What the interpreter queue needs to run one request. The plug-in that is registered under `pluginName`
/// runs it.
class IIP {
public:
    IIP(std::string pluginName, IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
        std::shared_ptr<nmutil::io::NMSink> err)
        : pluginName_(std::move(pluginName)), stream_(stream), out_(std::move(out)), err_(std::move(err)) {}
    virtual ~IIP() = default;
    IIP(const IIP&) = delete;
    IIP& operator=(const IIP&) = delete;

    const std::string& pluginName() const { return pluginName_; }
    IqmStreamID getStreamID() const { return stream_; }
    const std::shared_ptr<nmutil::io::NMSink>& getOutputSink() const { return out_; }
    const std::shared_ptr<nmutil::io::NMSink>& getErrorSink() const { return err_; }

    /// What the request does, in words for a user.
    virtual std::u16string toCustomerFriendlyString() const = 0;
    /// Writes a line for diagnosis, in UTF-8.
    virtual void write(std::ostream& out) const;
    /// Whether the request could run in another process.
    virtual bool canBeSerialized() const { return false; }

private:
    const std::string pluginName_;
    const IqmStreamID stream_;
    const std::shared_ptr<nmutil::io::NMSink> out_;
    const std::shared_ptr<nmutil::io::NMSink> err_;
};

}  // namespace cmddistributor
