// Identifiers, logging, bundles and the device: the process facts the library reports.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>
#include <thread>

#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSUUID.h"
#include "platform/uikit/UIDevice.h"

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

TEST(NSUUID, ParsesOnlyTheCanonicalForm) {
    auto parsed = NSUUID::initWithUUIDString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(parsed->UUIDString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_TRUE(parsed->isEqual(NSUUID::initWithUUIDString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F").get()));
    for (const char* bad :
         {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5G", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}"}) {
        EXPECT_EQ(NSUUID::initWithUUIDString(bad), nullptr) << bad;
    }
}

// Sends descriptor 2 into a pipe from SetUp on and gives back what was written to it. Whatever
// happens, descriptor 2 is restored before the test's result is printed.
class StandardErrorCapture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::pipe2(pipe_, O_CLOEXEC), 0);
        saved_ = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        ASSERT_GE(saved_, 0);
        ASSERT_EQ(::dup2(pipe_[1], STDERR_FILENO), STDERR_FILENO);
    }
    void TearDown() override {
        restore();
        if (pipe_[0] >= 0) ::close(pipe_[0]);
    }

    // Restores descriptor 2 and gives everything written to it meanwhile.
    std::string finish() {
        restore();
        std::string text;
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(pipe_[0], buffer, sizeof buffer);
            if (n > 0) {
                text.append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                return text;
            }
        }
    }

private:
    void restore() {
        if (saved_ >= 0) {
            ::dup2(saved_, STDERR_FILENO);
            ::close(saved_);
            saved_ = -1;
        }
        if (pipe_[1] >= 0) {
            ::close(pipe_[1]);  // the last writer: reading now ends at end of file
            pipe_[1] = -1;
        }
    }

    int pipe_[2] = {-1, -1};
    int saved_ = -1;
};

std::string linePattern(const std::string& message) {
    return "\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{3} " +
           std::string(program_invocation_short_name) + "\\[" + std::to_string(::getpid()) + ":\\d+\\] " +
           message + "\n";
}

TEST_F(StandardErrorCapture, NSLogWritesOnePrefixedLineAndNoFormatting) {
    NSLog("100% done %s %@ %d %n");
    const std::string text = finish();
    EXPECT_TRUE(std::regex_match(text, std::regex(linePattern("100% done %s %@ %d %n")))) << text;
}

TEST_F(StandardErrorCapture, NSLogLinesFromManyThreadsStayWhole) {
    constexpr int kThreads = 4;
    constexpr int kLines = 40;  // well under a pipe's capacity, which is read only at the end
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
    const std::string text = finish();

    const std::regex line(linePattern("thread (\\d) line (\\d+) x{60}"));
    std::vector<int> next(kThreads, 0);
    std::size_t start = 0;
    int lines = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        std::smatch m;
        const std::string one = text.substr(start, end + 1 - start);
        ASSERT_TRUE(std::regex_match(one, m, line)) << one;
        const int thread = std::stoi(m[1]);
        EXPECT_EQ(std::stoi(m[2]), next[thread]++) << "one thread's lines keep their order";
        ++lines;
        start = end + 1;
    }
    EXPECT_EQ(lines, kThreads * kLines);
}

class KitObject : public NSObject {
    PLATFORM_OBJC_CLASS(KitObject, NSObject)
};
class KitSubclass : public KitObject {
    PLATFORM_OBJC_CLASS(KitSubclass, KitObject)
};
class HostObject : public NSObject {
    PLATFORM_OBJC_CLASS(HostObject, NSObject)
};

TEST(NSBundle, MainBundleDescribesTheProcess) {
    auto main = NSBundle::mainBundle();
    EXPECT_EQ(NSStringValue(main->objectForInfoDictionaryKey(kCFBundleNameKey)),
              program_invocation_short_name);
    EXPECT_EQ(NSStringValue(main->objectForInfoDictionaryKey(kCFBundleExecutableKey)),
              program_invocation_short_name);
    EXPECT_EQ(main->objectForInfoDictionaryKey("NoSuchKey"), nullptr);
    EXPECT_EQ(NSBundle::bundleForClass(HostObject::class_()), main);
}

TEST(NSBundle, ClassesComeFromTheBundleRegisteredForThem) {
    auto kit = NSBundle::registerBundle(
        "com.example.kit", NSDictionary::dictionaryWithStrings({{"CFBundleShortVersionString", "2.1"}}));
    NSBundle::registerClass(KitObject::class_(), kit);

    EXPECT_EQ(NSBundle::bundleForClass(KitObject::class_()), kit);
    EXPECT_EQ(NSBundle::bundleForClass(KitSubclass::class_()), kit) << "a subclass comes with its superclass";
    EXPECT_EQ(NSBundle::bundleWithIdentifier("com.example.kit"), kit);
    EXPECT_EQ(NSBundle::bundleWithIdentifier("com.example.none"), nullptr);
    EXPECT_EQ(kit->bundleIdentifier(), "com.example.kit");
    EXPECT_EQ(NSStringValue(kit->objectForInfoDictionaryKey("CFBundleShortVersionString")), "2.1");
    EXPECT_EQ(kit->infoDictionary()->count(), 2u);

    NSBundle::registerClass(KitObject::class_(), nullptr);
    EXPECT_EQ(NSBundle::bundleForClass(KitSubclass::class_()), NSBundle::mainBundle());
}

// The values a host sets to play an app on a device are read by the library on its own threads.
TEST(HostSettableValues, MayBeReadWhileTheHostSetsThem) {
    auto device = UIDevice::currentDevice();
    EXPECT_EQ(device, UIDevice::current());
    EXPECT_EQ(device->model(), "iPhone");
    EXPECT_EQ(device->systemVersion(), "17.0");

    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done.load()) {
            const std::string version = device->systemVersion();
            EXPECT_TRUE(version == "17.0" || version == "16.4") << version;
            const std::string identifier = NSBundle::mainBundle()->bundleIdentifier();
            EXPECT_TRUE(identifier.empty() || identifier == "com.example.host") << identifier;
        }
    });
    for (int i = 0; i < 200; ++i) {
        device->setSystemVersion(i % 2 ? "17.0" : "16.4");
        NSBundle::setMainBundleInfoDictionary(
            i % 2 ? nullptr
                  : NSDictionary::dictionaryWithStrings({{kCFBundleIdentifierKey, "com.example.host"}}));
    }
    done.store(true);
    reader.join();

    NSBundle::setMainBundleInfoDictionary(
        NSDictionary::dictionaryWithStrings({{kCFBundleIdentifierKey, "com.example.host"}}));
    EXPECT_EQ(NSBundle::bundleWithIdentifier("com.example.host"), NSBundle::mainBundle());
    EXPECT_EQ(NSStringValue(NSBundle::mainBundle()->objectForInfoDictionaryKey(kCFBundleNameKey)),
              program_invocation_short_name)
        << "the process name stays unless the host gives another";
    NSBundle::setMainBundleInfoDictionary(nullptr);
    device->setSystemVersion("17.0");
    EXPECT_EQ(NSBundle::mainBundle()->bundleIdentifier(), "");
}

}  // namespace
