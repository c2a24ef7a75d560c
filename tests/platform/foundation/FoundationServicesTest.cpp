// Identifiers, logging and bundles: the process facts the library reports.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSUUID.h"

using namespace platform;

namespace {

TEST(NSUUID, RandomIdentifiersAreCanonicalUpperCaseAndDistinct) {
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 2000; ++i) {
        const std::string text = NSUUID::UUID()->UUIDString();
        ASSERT_TRUE(std::regex_match(text, canonical)) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 2000u);
}

// What `body` writes to descriptor 2, which is restored before this returns. The pipe is read only
// at the end, so `body` must write less than its capacity.
std::string captureStandardError(const std::function<void()>& body) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return "pipe failed";
    const int saved = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    ::dup2(fds[1], STDERR_FILENO);
    ::close(fds[1]);
    body();
    ::dup2(saved, STDERR_FILENO);  // the pipe's last writer goes: reading then ends
    ::close(saved);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) != 0;) {
        if (n > 0) text.append(buffer, static_cast<std::size_t>(n));
        if (n < 0 && errno != EINTR) break;
    }
    ::close(fds[0]);
    return text;
}

TEST(NSLog, WritesWholePrefixedLinesWithoutFormattingFromAnyThread) {
    constexpr int kThreads = 4;
    constexpr int kLines = 40;
    const std::string text = captureStandardError([] {
        NSLog("100% done %s %@ %d %n");
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < kLines; ++i) {
                    NSLog("thread " + std::to_string(t) + " line " + std::to_string(i) + " " +
                          std::string(60, 'x'));
                }
            });
        }
        for (auto& thread : threads) thread.join();
    });

    const std::string prefix = "\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{3} " +
                               std::string(program_invocation_short_name) + "\\[" +
                               std::to_string(::getpid()) + ":\\d+\\] ";
    const std::regex plain(prefix + "100% done %s %@ %d %n");
    const std::regex numbered(prefix + "thread (\\d) line (\\d+) x{60}");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    std::istringstream lines(text);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_TRUE(std::regex_match(line, plain)) << line;
    std::vector<int> next(kThreads, 0);
    int count = 0;
    for (std::smatch m; std::getline(lines, line); ++count) {
        ASSERT_TRUE(std::regex_match(line, m, numbered)) << line;
        EXPECT_EQ(std::stoi(m[2]), next[std::stoi(m[1])]++) << "one thread's lines keep their order";
    }
    EXPECT_EQ(count, kThreads * kLines);
}

class KitObject : public NSObject {
    PLATFORM_OBJC_CLASS(KitObject, NSObject)
};
class KitSubclass : public KitObject {
    PLATFORM_OBJC_CLASS(KitSubclass, KitObject)
};

TEST(NSBundle, ClassesComeFromTheBundleRegisteredForThemElseTheMainOne) {
    auto main = NSBundle::mainBundle();
    EXPECT_EQ(NSStringValue(main->objectForInfoDictionaryKey(kCFBundleNameKey)),
              program_invocation_short_name);
    EXPECT_EQ(NSBundle::bundleForClass(KitSubclass::class_()), main);

    auto kit = NSBundle::registerBundle(
        "com.example.kit", NSDictionary::dictionaryWithStrings({{"CFBundleShortVersionString", "2.1"}}));
    NSBundle::registerClass(KitObject::class_(), kit);
    EXPECT_EQ(NSBundle::bundleForClass(KitObject::class_()), kit);
    EXPECT_EQ(NSBundle::bundleForClass(KitSubclass::class_()), kit) << "a subclass comes with its superclass";
    EXPECT_EQ(NSStringValue(NSBundle::bundleForClass(KitSubclass::class_())
                                ->objectForInfoDictionaryKey("CFBundleShortVersionString")),
              "2.1");
    EXPECT_EQ(kit->objectForInfoDictionaryKey("NoSuchKey"), nullptr);

    NSBundle::registerClass(KitObject::class_(), nullptr);
    EXPECT_EQ(NSBundle::bundleForClass(KitSubclass::class_()), main);
}

}  // namespace
