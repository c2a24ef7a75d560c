// The HTTP layer against clients that misbehave: malformed heads, stalls, pipelining, a handler
// that throws, a stop with a client stuck mid-request.
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

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
    {"FoldedLine", "GET / HTTP/1.1\r\nX: a\r\n b\r\n\r\n", {400}},
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

}  // namespace
}  // namespace qlm_test
