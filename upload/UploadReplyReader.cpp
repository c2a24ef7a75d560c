#include "upload/UploadReplyReader.h"

#include <exception>
#include <utility>

#include "platform/foundation/NSLog.h"
#include "platform/url/NSURLSessionDataTask.h"

namespace quillmere {

void UploadReplyReader::expect(const std::shared_ptr<platform::NSURLSessionTask>& task,
                               platform::NSURLSessionCompletionHandler completion) {
    std::lock_guard lock(mutex_);
    replies_[task->taskIdentifier()].completion = std::move(completion);
}

void UploadReplyReader::URLSession_dataTask_didReceiveData(
    const std::shared_ptr<platform::NSURLSession>&, const std::shared_ptr<platform::NSURLSessionDataTask>& dataTask,
    const std::shared_ptr<platform::NSData>& data) {
    if (!data) return;
    bool cancel = false;
    {
        std::lock_guard lock(mutex_);
        const auto it = replies_.find(dataTask->taskIdentifier());
        if (it == replies_.end() || it->second.tooLarge) return;
        auto& reply = it->second;
        const auto bytes = data->view();
        if (reply.body.size() + bytes.size() > kMaximumBodyBytes) {
            reply.tooLarge = true;
            reply.body = std::string();  // releases what was kept
            cancel = true;
        } else {
            try {
                reply.body.append(bytes);
            } catch (const std::exception&) {
                reply.tooLarge = true;  // nothing more to keep it in: counted as too large
                cancel = true;
            }
        }
    }
    // Outside the lock: a cancelled task completes through this delegate.
    if (cancel) dataTask->cancel();
}

void UploadReplyReader::URLSession_task_didCompleteWithError(const std::shared_ptr<platform::NSURLSession>&,
                                                             const std::shared_ptr<platform::NSURLSessionTask>& task,
                                                             const std::shared_ptr<platform::NSError>& error) {
    Reply reply;
    {
        std::lock_guard lock(mutex_);
        const auto it = replies_.find(task->taskIdentifier());
        if (it == replies_.end()) return;
        reply = std::move(it->second);
        replies_.erase(it);
    }
    if (!reply.completion) return;
    if (reply.tooLarge) {
        platform::NSLog("Quillmere: Server reply longer than " + std::to_string(kMaximumBodyBytes) +
                        " bytes; its body is ignored.");
        reply.completion(nullptr, task->response(), nullptr);
        return;
    }
    auto body = error ? nullptr : platform::NSData::dataWithString(std::move(reply.body));
    reply.completion(std::move(body), task->response(), error);
}

}  // namespace quillmere
