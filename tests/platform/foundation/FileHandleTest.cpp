// File handles on real pipes: background reads reported on the arming thread's run loop, in order,
// ending with empty data; a pending read ended by close or release.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <set>
#include <thread>
#include <tuple>

#include "platform/foundation/NSFileHandle.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSPipe.h"
#include "platform/foundation/NSRunLoop.h"
#include "tests/support/NotificationRecorder.h"
#include "tests/support/Wait.h"

using namespace platform;
using qlm_test::NotificationRecorder;

namespace {

std::shared_ptr<NSData> dataOf(const std::shared_ptr<NSNotification>& note) {
    return objc_cast<NSData>(note->userInfo()->objectForKey(std::string(NSFileHandleNotificationDataItem)));
}

std::shared_ptr<NotificationRecorder> observeReads(const std::shared_ptr<NSFileHandle>& handle,
                                                   NotificationRecorder::Handler handler = nullptr) {
    auto recorder = NotificationRecorder::make(std::move(handler));
    NSNotificationCenter::defaultCenter()->addObserver(recorder, NotificationRecorder::selector(),
                                                       NSFileHandleReadCompletionNotification, handle);
    return recorder;
}

// One pipe written in 80-byte lines, as a host's logging would, and read in the background by
// arming the next read from each notification until end of file.
struct PipeRead {
    explicit PipeRead(char tag) {
        for (int i = 0; i < 1500; ++i) {
            std::string line = tag + std::to_string(1000000 + i) + " payload";
            line.resize(79, '.');
            expected += line + "\n";
        }
        recorder = observeReads(reading, [weak = std::weak_ptr<NSFileHandle>(reading)](const auto& note) {
            auto handle = weak.lock();
            if (handle && dataOf(note)->length() > 0) handle->readInBackgroundAndNotify();
        });
    }
    std::thread write() {
        return std::thread([writing = pipe->fileHandleForWriting(), text = expected] {
            for (std::size_t at = 0; at < text.size(); at += 80) {
                writing->writeData(*NSData::dataWithString(std::string_view(text).substr(at, 80)));
            }
            writing->closeFile();
        });
    }
    bool finished() const {
        auto all = recorder->received();
        return !all.empty() && dataOf(all.back().notification)->length() == 0;
    }

    std::shared_ptr<NSPipe> pipe = NSPipe::pipe();
    std::shared_ptr<NSFileHandle> reading = pipe->fileHandleForReading();
    std::string expected;
    std::shared_ptr<NotificationRecorder> recorder;
};

// Two pipes read at once, so each handle's notifications must keep to their own stream.
class BackgroundRead : public ::testing::TestWithParam<bool> {};

TEST_P(BackgroundRead, BytesArriveInOrderOnTheArmingThreadThenEmptyDataAtEnd) {
    const bool onMainThread = GetParam();
    PipeRead reads[] = {PipeRead('A'), PipeRead('B')};
    std::thread::id armingThread;
    const auto arm = [&] {
        armingThread = std::this_thread::get_id();
        for (auto& r : reads) r.reading->readInBackgroundAndNotify();
    };
    const auto done = [&] { return reads[0].finished() && reads[1].finished(); };
    std::thread writers[] = {reads[0].write(), reads[1].write()};
    if (onMainThread) {
        arm();
        EXPECT_TRUE(qlm_test::runMainLoopUntil(done, std::chrono::seconds(60)));
    } else {
        std::thread([&] {
            arm();
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (!done() && std::chrono::steady_clock::now() < deadline) CFRunLoopRunInMode(0.05, false);
        }).join();
    }
    for (auto& w : writers) w.join();

    for (auto& r : reads) {
        ASSERT_TRUE(r.finished());
        std::string bytes;
        for (const auto& received : r.recorder->received()) {
            bytes += dataOf(received.notification)->string();
            EXPECT_EQ(received.thread, armingThread);
            EXPECT_EQ(received.notification->object(), r.reading);
            EXPECT_EQ(received.notification->userInfo()->objectForKey(std::string(NSFileHandleError)),
                      nullptr);
        }
        EXPECT_EQ(bytes, r.expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, BackgroundRead, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Main" : "OwnRunLoop"; });

// Ended by close or release, before any bytes came or after the read whose notification waits in
// the run loop.
class PendingReadCancel : public ::testing::TestWithParam<std::tuple<bool, bool>> {};

TEST_P(PendingReadCancel, NeverNotifiesAndLetsGoOfTheDescriptor) {
    const auto [byClose, bytesAlreadyRead] = GetParam();
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    auto reading = NSFileHandle::initWithFileDescriptor(fds[0], true);
    auto writing = NSFileHandle::initWithFileDescriptor(fds[1], true);
    auto recorder = observeReads(nullptr);

    reading->readInBackgroundAndNotify();
    if (bytesAlreadyRead) {
        writing->writeData(*NSData::dataWithString("x"));
        ASSERT_TRUE(qlm_test::waitUntil([&] {
            int queued = -1;
            return ::ioctl(fds[1], FIONREAD, &queued) == 0 && queued == 0;
        }));
    }
    if (byClose) {
        reading->closeFile();
    } else {
        reading.reset();
    }
    // The reader's copy of the descriptor goes too: the writing end then sees no reader left.
    ASSERT_TRUE(qlm_test::waitUntil([&] {
        pollfd p{fds[1], POLLOUT, 0};
        return ::poll(&p, 1, 0) == 1 && (p.revents & POLLERR) != 0;
    }));
    // Runs the main loop until every block queued before this point has run.
    bool drained = false;
    NSRunLoop::mainRunLoop()->performBlock([&drained] { drained = true; });
    ASSERT_TRUE(qlm_test::runMainLoopUntil([&] { return drained; }));
    EXPECT_EQ(recorder->count(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Endings, PendingReadCancel, ::testing::Combine(::testing::Bool(), ::testing::Bool()),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param) ? "Close" : "Release") +
                                    (std::get<1>(info.param) ? "AfterRead" : "BeforeRead");
                         });

}  // namespace
