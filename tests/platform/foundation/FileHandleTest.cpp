// File handles on real pipes: background reads reported on the arming thread's run loop, in order,
// ending with empty data; cancellation by close or release; writes that survive full pipes.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>

#include "platform/foundation/NSFileHandle.h"
#include "platform/foundation/NSNotificationCenter.h"
#include "platform/foundation/NSNumber.h"
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

// Follows one handle's background reads, arming the next from each notification until end of file.
class ReadCollector {
public:
    explicit ReadCollector(const std::shared_ptr<NSFileHandle>& handle) {
        recorder_ =
            NotificationRecorder::make([weak = std::weak_ptr<NSFileHandle>(handle)](const auto& note) {
                auto handle = weak.lock();
                if (handle && dataOf(note)->length() > 0) handle->readInBackgroundAndNotify();
            });
        NSNotificationCenter::defaultCenter()->addObserver(recorder_, NotificationRecorder::selector(),
                                                           NSFileHandleReadCompletionNotification, handle);
    }

    bool finished() const {
        auto all = recorder_->received();
        return !all.empty() && dataOf(all.back().notification)->length() == 0;
    }
    std::string bytes() const {
        std::string text;
        for (const auto& r : recorder_->received()) text += dataOf(r.notification)->string();
        return text;
    }
    std::set<std::thread::id> threads() const {
        std::set<std::thread::id> ids;
        for (const auto& r : recorder_->received()) ids.insert(r.thread);
        return ids;
    }
    std::vector<NotificationRecorder::Received> received() const { return recorder_->received(); }

private:
    std::shared_ptr<NotificationRecorder> recorder_;
};

// Tests here run the main thread's run loop; whatever they leave queued on it runs before the next.
class FileHandleTest : public ::testing::Test {
protected:
    void TearDown() override { CFRunLoopRunInMode(0, false); }

    // Runs the main loop until every block queued before this call has run.
    static void drainMainLoop() {
        bool reached = false;
        NSRunLoop::mainRunLoop()->performBlock([&reached] { reached = true; });
        ASSERT_TRUE(qlm_test::runMainLoopUntil([&] { return reached; }));
    }
};

std::string numberedLines(int count, char tag) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        std::string line = tag + std::to_string(1000000 + i) + " payload";
        line.resize(79, '.');
        text += line + "\n";
    }
    return text;
}

// Writes `text` in 80-byte lines, as a host's logging would, then closes the writing end.
std::thread writeLines(std::shared_ptr<NSFileHandle> writing, std::string text) {
    return std::thread([writing = std::move(writing), text = std::move(text)] {
        for (std::size_t at = 0; at < text.size(); at += 80) {
            writing->writeData(*NSData::dataWithString(std::string_view(text).substr(at, 80)));
        }
        writing->closeFile();
    });
}

enum class ArmingThread { Main, OwnRunLoop };

class BackgroundReadDelivery : public FileHandleTest, public ::testing::WithParamInterface<ArmingThread> {};

TEST_P(BackgroundReadDelivery, BytesArriveInOrderOnTheArmingThreadThenEmptyDataAtEnd) {
    auto pipe = NSPipe::pipe();
    ASSERT_NE(pipe, nullptr);
    ReadCollector collector(pipe->fileHandleForReading());
    const std::string expected = numberedLines(4000, 'L');

    std::thread::id armingThread;
    std::thread writer = writeLines(pipe->fileHandleForWriting(), expected);
    if (GetParam() == ArmingThread::Main) {
        armingThread = std::this_thread::get_id();
        pipe->fileHandleForReading()->readInBackgroundAndNotify();
        EXPECT_TRUE(
            qlm_test::runMainLoopUntil([&] { return collector.finished(); }, std::chrono::seconds(60)));
    } else {
        std::thread own([&] {
            armingThread = std::this_thread::get_id();
            pipe->fileHandleForReading()->readInBackgroundAndNotify();
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (!collector.finished() && std::chrono::steady_clock::now() < deadline) {
                CFRunLoopRunInMode(0.05, false);
            }
        });
        own.join();
    }
    writer.join();

    ASSERT_TRUE(collector.finished());
    EXPECT_EQ(collector.bytes(), expected);
    EXPECT_EQ(collector.threads(), std::set<std::thread::id>{armingThread});
    for (const auto& r : collector.received()) {
        EXPECT_EQ(r.notification->object(), pipe->fileHandleForReading());
        EXPECT_EQ(r.notification->userInfo()->objectForKey(std::string(NSFileHandleError)), nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(Threads, BackgroundReadDelivery,
                         ::testing::Values(ArmingThread::Main, ArmingThread::OwnRunLoop),
                         [](const auto& info) {
                             return info.param == ArmingThread::Main ? "Main" : "OwnRunLoop";
                         });

TEST_F(FileHandleTest, TwoHandlesReadAtOnceKeepTheirOwnStreams) {
    auto first = NSPipe::pipe();
    auto second = NSPipe::pipe();
    ReadCollector firstReads(first->fileHandleForReading());
    ReadCollector secondReads(second->fileHandleForReading());
    first->fileHandleForReading()->readInBackgroundAndNotify();
    second->fileHandleForReading()->readInBackgroundAndNotify();

    std::thread a = writeLines(first->fileHandleForWriting(), numberedLines(1500, 'A'));
    std::thread b = writeLines(second->fileHandleForWriting(), numberedLines(1500, 'B'));
    EXPECT_TRUE(qlm_test::runMainLoopUntil([&] { return firstReads.finished() && secondReads.finished(); },
                                           std::chrono::seconds(60)));
    a.join();
    b.join();
    EXPECT_EQ(firstReads.bytes(), numberedLines(1500, 'A'));
    EXPECT_EQ(secondReads.bytes(), numberedLines(1500, 'B'));
}

enum class Ending { Release, Close };
struct CancelCase {
    Ending ending;
    bool bytesAlreadyRead;  // the read has happened and its notification waits in the run loop
};
void PrintTo(const CancelCase& c, std::ostream* os) {
    *os << (c.ending == Ending::Close ? "close" : "release")
        << (c.bytesAlreadyRead ? " after read" : " before read");
}

class PendingReadCancel : public FileHandleTest, public ::testing::WithParamInterface<CancelCase> {};

TEST_P(PendingReadCancel, NeverNotifiesAndLetsGoOfTheDescriptor) {
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    auto reading = NSFileHandle::initWithFileDescriptor(fds[0], true);
    auto writing = NSFileHandle::initWithFileDescriptor(fds[1], true);
    auto recorder = NotificationRecorder::make();
    NSNotificationCenter::defaultCenter()->addObserver(recorder, NotificationRecorder::selector(),
                                                       NSFileHandleReadCompletionNotification, nullptr);

    reading->readInBackgroundAndNotify();
    if (GetParam().bytesAlreadyRead) {
        writing->writeData(*NSData::dataWithString("x"));
        ASSERT_TRUE(qlm_test::waitUntil([&] {
            int queued = -1;
            return ::ioctl(fds[1], FIONREAD, &queued) == 0 && queued == 0;
        }));
    }
    if (GetParam().ending == Ending::Close) {
        reading->closeFile();
    } else {
        reading.reset();
    }

    // The reader's copy of the descriptor goes too: the writing end then sees no reader left.
    ASSERT_TRUE(qlm_test::waitUntil([&] {
        pollfd p{fds[1], POLLOUT, 0};
        return ::poll(&p, 1, 0) == 1 && (p.revents & POLLERR) != 0;
    }));
    drainMainLoop();
    EXPECT_EQ(recorder->count(), 0u);

    if (reading) {
        reading->readInBackgroundAndNotify();
        ASSERT_TRUE(qlm_test::runMainLoopUntil([&] { return recorder->count() == 1; }));
        auto note = recorder->received()[0].notification;
        EXPECT_EQ(note->object(), reading);
        EXPECT_EQ(dataOf(note)->length(), 0u);
        auto error = objc_cast<NSNumber>(note->userInfo()->objectForKey(std::string(NSFileHandleError)));
        ASSERT_NE(error, nullptr);
        EXPECT_EQ(error->longLongValue(), EBADF);
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, PendingReadCancel,
                         ::testing::Values(CancelCase{Ending::Release, false},
                                           CancelCase{Ending::Release, true},
                                           CancelCase{Ending::Close, false}, CancelCase{Ending::Close, true}),
                         [](const auto& info) {
                             return std::string(info.param.ending == Ending::Close ? "Close" : "Release") +
                                    (info.param.bytesAlreadyRead ? "AfterRead" : "BeforeRead");
                         });

class WriteThroughFullPipe : public ::testing::TestWithParam<bool> {};

TEST_P(WriteThroughFullPipe, WritesEveryByte) {
    auto pipe = NSPipe::pipe();
    ASSERT_NE(pipe, nullptr);
    if (GetParam()) {
        const int fd = pipe->fileHandleForWriting()->fileDescriptor();
        ASSERT_EQ(::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK), 0);
    }
    std::string payload(3 * 1024 * 1024 + 7, '\0');
    for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 31 % 251);

    std::shared_ptr<NSData> received;
    std::thread reader([&] { received = pipe->fileHandleForReading()->readDataToEndOfFile(); });
    pipe->fileHandleForWriting()->writeData(*NSData::dataWithString(payload));
    pipe->fileHandleForWriting()->closeFile();
    reader.join();
    EXPECT_TRUE(received->string() == payload) << "received " << received->length() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(Modes, WriteThroughFullPipe, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "NonBlocking" : "Blocking"; });

TEST(FileHandle, AvailableDataGivesWhatIsThereThenEmptyAtEnd) {
    auto pipe = NSPipe::pipe();
    pipe->fileHandleForWriting()->writeData(*NSData::dataWithString("abc"));
    EXPECT_EQ(pipe->fileHandleForReading()->availableData()->string(), "abc");
    pipe->fileHandleForWriting()->closeFile();
    EXPECT_EQ(pipe->fileHandleForReading()->availableData()->length(), 0u);
}

TEST(FileHandle, OwnedDescriptorsCloseWithTheirHandles) {
    auto pipe = NSPipe::pipe();
    const int readFd = pipe->fileHandleForReading()->fileDescriptor();
    const int writeFd = pipe->fileHandleForWriting()->fileDescriptor();
    auto borrowed = NSFileHandle::initWithFileDescriptor(::fcntl(readFd, F_DUPFD_CLOEXEC, 0), false);
    const int borrowedFd = borrowed->fileDescriptor();

    pipe.reset();
    borrowed.reset();
    EXPECT_EQ(::fcntl(readFd, F_GETFD), -1);
    EXPECT_EQ(::fcntl(writeFd, F_GETFD), -1);
    EXPECT_NE(::fcntl(borrowedFd, F_GETFD), -1) << "a handle made with closeOnDealloc false leaves it open";
    ::close(borrowedFd);
}

}  // namespace
