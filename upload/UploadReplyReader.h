#pragma once
// The delegate of the Uploader's URL session: reads each upload's reply and hands it to that
// upload's completion, keeping at most kMaximumBodyBytes of a body. A body that runs longer is not
// read further: the task is cancelled there, one "Quillmere: " line says so, and the completion
// gets the reply's response with no body and no error, as for a reply without relay messages.
//
// Threads: expect() on any thread, before the task is resumed; the rest on the session's delegate
// queue. Each completion runs there once, and is released once it has run.
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/url/NSURLSessionDataDelegate.h"
#include "platform/url/NSURLSessionTask.h"

namespace quillmere {

class UploadReplyReader final : public platform::NSURLSessionDataDelegate {
public:
    static constexpr std::size_t kMaximumBodyBytes = 64 * 1024;

    // `completion` gets the task's reply once it has ended.
    void expect(const std::shared_ptr<platform::NSURLSessionTask>& task,
                platform::NSURLSessionCompletionHandler completion);

    void URLSession_dataTask_didReceiveData(const std::shared_ptr<platform::NSURLSession>& session,
                                            const std::shared_ptr<platform::NSURLSessionDataTask>& dataTask,
                                            const std::shared_ptr<platform::NSData>& data) override;
    void URLSession_task_didCompleteWithError(const std::shared_ptr<platform::NSURLSession>& session,
                                              const std::shared_ptr<platform::NSURLSessionTask>& task,
                                              const std::shared_ptr<platform::NSError>& error) override;

private:
    struct Reply {
        platform::NSURLSessionCompletionHandler completion;
        std::string body;
        bool tooLarge = false;
    };

    std::mutex mutex_;
    std::map<unsigned long, Reply> replies_;  // guarded by mutex_; by task identifier
};

}  // namespace quillmere
