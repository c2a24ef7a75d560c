// The HTTP layer against clients that misbehave: malformed heads, stalls, pipelining, a handler
// that throws, a stop with a client stuck mid-request.
#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <stdexcept>
#include <thread>

#include "tests/server/ServerHarness.h"
#include "tests/support/Wait.h"

namespace qlm_test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using qlm::ingest::HttpServerOptions;

struct Exchange {
    std::string name;
    std::string sent;
    std::vector<int> statuses;  // of the replies, in order, before the server closes the connection
    friend void PrintTo(const Exchange& exchange, std::ostream* out) { *out << exchange.name; }
};

std::vector<int> statusesIn(const std::string& received) {
    std::vector<int> statuses;
    for (auto at = received.find("HTTP/1.1 "); at != std::string::npos;
         at = received.find("HTTP/1.1 ", at + 1))
        statuses.push_back(std::stoi(received.substr(at + 9, 3)));
    return statuses;
}

std::string manyFields(int n) {
    std::string head = "GET / HTTP/1.1\r\n";
    for (int i = 0; i < n; ++i) head += "X-" + std::to_string(i) + ": v\r\n";
    return head + "\r\n";
}

class ExchangeTest : public testing::TestWithParam<Exchange> {};

TEST_P(ExchangeTest, GetsItsRepliesThenTheConnectionIsClosed) {
    HttpServerOptions options;
    options.readTimeout = options.idleTimeout = 500ms;
    RunningServer server(options);
    {
        RawConnection connection(server.port());
        ASSERT_TRUE(connection.send(GetParam().sent));
        const std::string received = connection.readUntilClosed();
        EXPECT_EQ(statusesIn(received), GetParam().statuses) << received;
        EXPECT_TRUE(connection.closedByPeer());
    }  // closing our end cuts short the server's draining of a refused request
    EXPECT_TRUE(waitUntil([&] { return server.http().activeConnections() == 0; }));
    EXPECT_TRUE(server.store().recordings().empty());
}

const std::string kUpload = "POST /i?a=x&r=y&t=z&s=0&ir=t HTTP/1.1\r\n";

const Exchange kExchanges[] = {
    {"NotHttp", "GARBAGE\r\n\r\n", {400}},
    {"AbsoluteTarget", "GET http://x/ HTTP/1.1\r\n\r\n", {400}},
    {"OtherVersion", "GET / HTTP/2.0\r\n\r\n", {505}},
    {"NotAVersion", "GET / HTTQ/1.1\r\n\r\n", {400}},
    {"BareLineFeed", "GET / HTTP/1.1\r\nHost: x\nX: y\r\n\r\n", {400}},
    // Beast joins a folded line with spaces, which HTTP/1.1 allows as the alternative to refusing.
    {"FoldedLine", "GET / HTTP/1.1\r\nX: a\r\n b\r\n\r\n", {200}},
    {"LineWithoutColon", "GET / HTTP/1.1\r\nNoColon\r\n\r\n", {400}},
    {"SpaceInName", "GET / HTTP/1.1\r\nBad Name: v\r\n\r\n", {400}},
    {"NulInHead", "GET / HTTP/1.1\r\nX: a\0b\r\n\r\n"s, {400}},
    {"BrokenEscapeInPath", "GET /%zz/s/rec/0 HTTP/1.1\r\n\r\n", {400}},
    {"ConflictingLengths", kUpload + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello", {400}},
    {"HugeLength", kUpload + "Content-Length: 99999999999999999999999\r\n\r\n", {400}},
    {"LengthOverLimit", kUpload + "Content-Length: 67108865\r\n\r\n", {413}},
    {"Chunked", kUpload + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", {411}},
    {"UnknownExpectation", "GET / HTTP/1.1\r\nExpect: miracles\r\n\r\n", {417}},
    {"TooManyFields", manyFields(101), {431}},
    {"HeadTooLarge", "GET / HTTP/1.1\r\nX: " + std::string(70 * 1024, 'x') + "\r\n\r\n", {431}},
    {"StallInTheHead", "POST /i?a=x", {408}},
    {"StallInTheBody", kUpload + "Content-Length: 10\r\n\r\n12345", {408}},
    // An idle kept-alive connection is closed without a 408.
    {"IdleAfterAReply", "GET / HTTP/1.1\r\n\r\n", {200}},
    {"PipelinedUntilClose",
     "GET /recordings.json HTTP/1.1\r\n\r\nGET /nothing-here HTTP/1.1\r\n\r\n"
     "GET / HTTP/1.1\r\nConnection: close\r\n\r\nGET /recordings.json HTTP/1.1\r\n\r\n",
     {200, 404, 200}},
    {"Http10ClosesAfterOneReply", "GET / HTTP/1.0\r\n\r\nGET / HTTP/1.0\r\n\r\n", {200}},
};

INSTANTIATE_TEST_SUITE_P(Table, ExchangeTest, testing::ValuesIn(kExchanges),
                         [](const auto& info) { return info.param.name; });

TEST(HttpServerTest, AStalledClientHoldsUpNoOtherAndDoesNotHoldUpStop) {
    HttpServerOptions options;
    options.readTimeout = 60s;
    RunningServer server(options);
    RawConnection stalled(server.port());
    ASSERT_TRUE(stalled.send(kUpload + "Content-Length: 100\r\n\r\nabc"));
    ASSERT_TRUE(waitUntil([&] { return server.http().activeConnections() == 1; }));

    const Reply reply = post(server.ingestURL("rec-2"), encodeBatch(everyKindOfEvent()));
    EXPECT_EQ(reply.status, 201) << reply.error;
    EXPECT_EQ(server.stored("rec-2"), 7u);

    auto stopped = std::async(std::launch::async, [&] { server.http().stop(); });
    ASSERT_EQ(stopped.wait_for(30s), std::future_status::ready) << "stop() hung on the stalled client";
    stalled.readUntilClosed();
    EXPECT_TRUE(stalled.closedByPeer());
    EXPECT_EQ(server.http().activeConnections(), 0u);
}

// Clients that send a body a byte at a time hold every connection slot only until their bodies'
// total deadline: each byte no longer buys more time.
TEST(HttpServerTest, TricklingBodiesAreCutAtTheirDeadlineAndOthersAreServedAfter) {
    HttpServerOptions options;
    options.readTimeout = 300ms;
    options.minBodyBytesPerSecond = 1000;  // a 1000-byte body: 1.3 s in all
    options.maxConnections = 4;
    options.maxConnectionsPerClient = 0;
    RunningServer server(options);
    std::vector<std::future<std::string>> tricklers;
    for (int i = 0; i < 4; ++i) {
        tricklers.push_back(std::async(std::launch::async, [&] {
            RawConnection connection(server.port());
            connection.send(kUpload + "Content-Length: 1000\r\n\r\n");
            const auto until = std::chrono::steady_clock::now() + 1800ms;  // past the deadline, before the close
            while (std::chrono::steady_clock::now() < until && connection.send("x")) std::this_thread::sleep_for(50ms);
            return connection.readUntilClosed();
        }));
    }
    ASSERT_TRUE(waitUntil([&] { return server.http().activeConnections() == 4; }));
    const auto asked = std::chrono::steady_clock::now();
    const Reply reply = post(server.ingestURL("rec-1"), encodeBatch(everyKindOfEvent()));
    EXPECT_EQ(reply.status, 201) << reply.error;
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 3s) << "waited for more than the trickles' deadline";
    for (auto& trickler : tricklers) EXPECT_EQ(statusesIn(trickler.get()), std::vector<int>{408});
}

TEST(HttpServerTest, OneAddressHoldsNoMoreThanItsShareOfConnections) {
    HttpServerOptions options;
    options.maxConnectionsPerClient = 2;
    RunningServer server(options);
    RawConnection first(server.port(), "127.0.0.2"), second(server.port(), "127.0.0.2");
    ASSERT_TRUE(first.send("GET / HTTP/1.1\r\n"));
    ASSERT_TRUE(second.send("GET / HTTP/1.1\r\n"));
    ASSERT_TRUE(waitUntil([&] { return server.http().activeConnections() == 2; }));
    RawConnection third(server.port(), "127.0.0.2");
    EXPECT_EQ(statusesIn(third.readUntilClosed()), std::vector<int>{503});
    EXPECT_EQ(get(server.url("/")).status, 200) << "another address is served";
}

TEST(HttpServerTest, EveryReplyCarriesTheSecurityHeaders) {
    RunningServer server;
    for (const char* head : {"GET / HTTP/1.1\r\nConnection: close\r\n\r\n", "GARBAGE\r\n\r\n"}) {
        RawConnection connection(server.port());
        ASSERT_TRUE(connection.send(head));
        const std::string reply = connection.readUntilClosed();
        EXPECT_NE(reply.find("Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; "
                             "worker-src 'self';"),
                  std::string::npos)
            << reply;
        EXPECT_NE(reply.find("X-Content-Type-Options: nosniff\r\n"), std::string::npos);
        EXPECT_NE(reply.find("Referrer-Policy: no-referrer\r\n"), std::string::npos);
    }
}

TEST(HttpServerTest, AThrowingHandlerGives500AndTheServerGoesOn) {
    qlm::ingest::HttpServer server({}, [](const qlm::ingest::HttpRequest& request) {
        if (request.path == "/throw") throw std::runtime_error("boom");
        if (request.path == "/throw-int") throw 42;
        return qlm::ingest::HttpResponse::text(200, "fine");
    });
    server.start();
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
    EXPECT_EQ(get(base + "/throw").status, 500);
    EXPECT_EQ(get(base + "/throw-int").status, 500);
    EXPECT_EQ(get(base + "/ok").body, "fine");
}

TEST(HttpServerTest, AStreamedBodyGoesOutInChunksOrUntilTheCloseAndAFailingOneIsCutShort) {
    qlm::ingest::HttpServer server({}, [](const qlm::ingest::HttpRequest& request) {
        auto response = qlm::ingest::HttpResponse::text(200, "");
        response.stream = [n = 0, fails = request.path == "/fails"]() mutable -> std::optional<std::string> {
            if (fails && n == 1) throw std::runtime_error("the store went away");
            const int piece = n++;
            if (piece == 3) return std::nullopt;
            return piece == 1 ? "" : "piece-" + std::to_string(piece);  // an empty piece ends nothing
        };
        return response;
    });
    server.start();
    const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
    EXPECT_EQ(get(base + "/").body, "piece-0piece-2");
    const Reply cut = get(base + "/fails");
    EXPECT_EQ(cut.status, 0) << "a body cut short is no reply: " << cut.body;

    RawConnection http11(server.port()), http10(server.port());
    ASSERT_TRUE(http11.send("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"));
    const std::string chunked = http11.readUntilClosed();
    EXPECT_NE(chunked.find("Transfer-Encoding: chunked\r\n"), std::string::npos) << chunked;
    EXPECT_TRUE(chunked.ends_with("\r\n\r\n7\r\npiece-0\r\n7\r\npiece-2\r\n0\r\n\r\n")) << chunked;
    ASSERT_TRUE(http10.send("GET / HTTP/1.0\r\n\r\n"));
    const std::string plain = http10.readUntilClosed();
    EXPECT_TRUE(plain.ends_with("\r\n\r\npiece-0piece-2")) << plain;
    EXPECT_EQ(plain.find("Content-Length"), std::string::npos);
    EXPECT_EQ(get(base + "/").status, 200);
}

}  // namespace
}  // namespace qlm_test
