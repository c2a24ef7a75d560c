#include "platform/foundation/NSError.h"

#include "platform/foundation/NSString.h"

namespace platform {

std::shared_ptr<NSError> NSError::errorWithDomain(std::string domain, long code,
                                                  std::shared_ptr<NSDictionary> userInfo) {
    return std::make_shared<NSError>(std::move(domain), code, std::move(userInfo));
}

std::shared_ptr<NSError> NSError::errorWithDescription(std::string domain, long code, std::string description) {
    auto info = NSDictionary::dictionaryWithStrings({{NSLocalizedDescriptionKey, std::move(description)}});
    return errorWithDomain(std::move(domain), code, std::move(info));
}

std::string NSError::localizedDescription() const {
    if (userInfo_) {
        if (auto text = NSStringValue(userInfo_->objectForKey(std::string(NSLocalizedDescriptionKey)))) return *text;
    }
    return "The operation couldn\u2019t be completed. (" + domain_ + " error " + std::to_string(code_) + ".)";
}

std::string NSError::description() const {
    return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + localizedDescription() + "\"";
}

}  // namespace platform
