#pragma once
// What turns the root views of the windows into one page of a recording. An implementation is made
// from the set of redaction tags (accessibility identifiers of views to leave out) and keeps its
// own copy of them.
#include <memory>
#include <vector>

#include "platform/foundation/NSData.h"
#include "platform/uikit/UIView.h"

namespace quillmere {

class ViewProcessor {
public:
    virtual ~ViewProcessor() = default;

    // Main thread. A PDF document of exactly one page, the views drawn in list order, later ones
    // over earlier ones; blank for an empty list. The views are only read while this runs: the
    // returned data may make its bytes later, on whichever thread first reads them.
    virtual std::shared_ptr<platform::NSData> renderViews(
        const std::vector<std::shared_ptr<platform::UIView>>& views) const = 0;
};

}  // namespace quillmere
