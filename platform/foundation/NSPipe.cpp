#include "platform/foundation/NSPipe.h"

#include <fcntl.h>
#include <unistd.h>

namespace platform {

std::shared_ptr<NSPipe> NSPipe::pipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return nullptr;
    return std::make_shared<NSPipe>(NSFileHandle::initWithFileDescriptor(fds[0], true),
                                    NSFileHandle::initWithFileDescriptor(fds[1], true));
}

}  // namespace platform
