#pragma once
// A user name and password for an authentication challenge. Immutable once made.
#include <memory>
#include <optional>
#include <string>

#include "platform/foundation/NSObject.h"

namespace platform {

enum NSURLCredentialPersistence : unsigned long {
    NSURLCredentialPersistenceNone = 0,
    NSURLCredentialPersistenceForSession = 1,
    NSURLCredentialPersistencePermanent = 2,
    NSURLCredentialPersistenceSynchronizable = 3,
};

class NSURLCredential : public NSObject {
    PLATFORM_OBJC_CLASS(NSURLCredential, NSObject)
public:
    NSURLCredential(std::string user, std::string password, NSURLCredentialPersistence persistence)
        : user_(std::move(user)), password_(std::move(password)), persistence_(persistence) {}

    static std::shared_ptr<NSURLCredential> credentialWithUser(std::string user, std::string password,
                                                               NSURLCredentialPersistence persistence) {
        return std::make_shared<NSURLCredential>(std::move(user), std::move(password), persistence);
    }

    const std::string& user() const { return user_; }
    const std::string& password() const { return password_; }
    bool hasPassword() const { return !password_.empty(); }
    NSURLCredentialPersistence persistence() const { return persistence_; }

private:
    const std::string user_;
    const std::string password_;
    const NSURLCredentialPersistence persistence_;
};

}  // namespace platform
