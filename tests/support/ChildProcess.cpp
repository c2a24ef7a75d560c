#include "tests/support/ChildProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#define QLM_SANITIZED_BUILD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#include <sanitizer/common_interface_defs.h>
#define QLM_SANITIZED_BUILD 1
#endif
#endif

namespace qlm_test {

void keepSanitizerReportsOnStandardError() {
#ifdef QLM_SANITIZED_BUILD
    // Reports go where the parent looks, not into a console that the scenario stands up.
    const int reports = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(reports)));
#endif
}

int unusedLoopbackPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

void inChildProcess(void (*scenario)()) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            keepSanitizerReportsOnStandardError();
            ::testing::TestPartResultArray results;
            {
                const ::testing::ScopedFakeTestPartResultReporter reporter(
                    ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
                scenario();
            }
            int failures = 0;
            for (int i = 0; i < results.size(); ++i) {
                const auto& result = results.GetTestPartResult(i);
                if (!result.failed()) continue;
                ++failures;
                std::fprintf(stderr, "%s:%d: %s\n", result.file_name() ? result.file_name() : "?",
                             result.line_number(), result.message());
            }
            std::_Exit(failures == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace qlm_test
