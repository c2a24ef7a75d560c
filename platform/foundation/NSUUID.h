#pragma once
// Universally unique identifiers (RFC 4122). Immutable; any thread.
#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/foundation/NSObject.h"

namespace platform {

class NSUUID : public NSObject {
    PLATFORM_OBJC_CLASS(NSUUID, NSObject)
public:
    using Bytes = std::array<uint8_t, 16>;
    explicit NSUUID(const Bytes& bytes) : bytes_(bytes) {}

    // A new random (version 4) identifier.
    static std::shared_ptr<NSUUID> UUID();
    // nil unless `text` is the 36-character form (either case).
    static std::shared_ptr<NSUUID> initWithUUIDString(const std::string& text);

    // The 36-character form in upper case, e.g. "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    std::string UUIDString() const;
    const Bytes& getUUIDBytes() const { return bytes_; }

    bool isEqual(const NSObject* other) const override;
    std::size_t hash() const override;
    std::string description() const override { return UUIDString(); }

private:
    Bytes bytes_;
};

}  // namespace platform
