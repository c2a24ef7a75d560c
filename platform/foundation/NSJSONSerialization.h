#pragma once
// JSON text to and from objects: NSDictionary (NSString keys), NSArray, NSString, NSNumber (bool,
// int64, uint64 or double) and NSNull. Any thread.
//
// Failures come back as nil and an NSError in NSCocoaErrorDomain: 3840 when reading, 3852 when
// writing. Where the platform raises an exception on writing an invalid object (a key that is not a
// string, a non-finite number, an object of another class), this gives an error too: the library
// must never let an exception reach its host, and checks isValidJSONObject first where it matters.
#include <memory>

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSObject.h"

namespace platform {

enum NSJSONReadingOptions : unsigned long {
    NSJSONReadingMutableContainers = 1UL << 0,  // arrays and dictionaries come back mutable
    NSJSONReadingMutableLeaves = 1UL << 1,      // accepted; strings are never mutable here
    NSJSONReadingFragmentsAllowed = 1UL << 2,   // a top level that is not an array or an object
    NSJSONReadingAllowFragments = NSJSONReadingFragmentsAllowed,
};

enum NSJSONWritingOptions : unsigned long {
    NSJSONWritingSortedKeys = 1UL << 1,  // keys are always written sorted here
    NSJSONWritingFragmentsAllowed = 1UL << 2,
    NSJSONWritingWithoutEscapingSlashes = 1UL << 3,
};

class NSJSONSerialization {
public:
    // nil and *error (when given) on failure: invalid JSON or UTF-8, empty data, nesting deeper
    // than 512, or a top level that is not an array or an object without FragmentsAllowed.
    static id JSONObjectWithData(const NSData& data, unsigned long options, std::shared_ptr<NSError>* error);

    // Compact UTF-8 text: no spaces, "/" written as "\/" (unless WithoutEscapingSlashes), other
    // non-ASCII characters as they are, control characters escaped. nil and *error when `object`
    // is not valid (see isValidJSONObject; FragmentsAllowed also admits a string, number or null).
    static std::shared_ptr<NSData> dataWithJSONObject(const id& object, unsigned long options,
                                                      std::shared_ptr<NSError>* error);

    // Whether dataWithJSONObject with no options would accept the object: an NSArray or
    // NSDictionary at the top, NSString keys, NSString, NSNumber (finite), NSNull, NSArray and
    // NSDictionary values, nesting no deeper than 512.
    static bool isValidJSONObject(const id& object);
};

}  // namespace platform
