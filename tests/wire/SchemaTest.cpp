// The wire format as the ingest server reads it: the schema's shape, and the bytes that a few
// characteristic messages encode to (defaults left out, fixed-width floats, one-of members,
// field numbers that differ between related messages).
#include <gtest/gtest.h>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <string>

#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"
#include "wire/qm_utils.pb.h"

namespace {

std::string hex(const std::string& bytes) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

TEST(SchemaTest, JsonNamesAreTheFieldNamesUnchanged) {
    const auto* event = qm::Event::descriptor();
    for (int i = 0; i < event->field_count(); ++i) {
        EXPECT_EQ(event->field(i)->json_name(), event->field(i)->name());
    }
    EXPECT_EQ(qm::EventList::descriptor()->FindFieldByNumber(4)->json_name(), "visitedURLs");
}

struct EncodingCase {
    const char* name;
    std::string bytes;
    std::string expectedHex;
};

class EncodingTest : public ::testing::TestWithParam<EncodingCase> {};

TEST_P(EncodingTest, EncodesToTheseBytes) { EXPECT_EQ(hex(GetParam().bytes), GetParam().expectedHex); }

EncodingCase valueOfA() {
    qm::utils::Value v;
    v.set_arson("a");
    return {"valueHoldsItsTextInFieldTwo", v.SerializeAsString(), "120161"};
}

EncodingCase defaultEvent() { return {"defaultEventIsEmpty", qm::Event().SerializeAsString(), ""}; }

EncodingCase downTouchAtOrigin() {
    qm::ios::TouchEvent t;
    t.set_type(qm::ios::TouchEvent::DOWN);
    return {"downAtOriginIsEmpty", t.SerializeAsString(), ""};
}

EncodingCase moveTouch() {
    qm::ios::TouchEvent t;
    t.set_type(qm::ios::TouchEvent::MOVE);
    t.set_x(1.0f);
    t.set_eventtime(2.0);
    // type varint 2; x fixed32 1.0f; eventTime fixed64 2.0.
    return {"touchFloatsAreFixedWidth", t.SerializeAsString(), "0802" "150000803f" "290000000000000040"};
}

EncodingCase pdfSize() {
    qm::ios::PDFViewCapture p;
    p.set_width(390);
    p.set_height(844);
    return {"screenSizeIsVarints", p.SerializeAsString(), "108603" "18cc06"};
}

EncodingCase metadata() {
    qm::Metadata m;
    m.mutable_deviceinfo()->set_devicetype(qm::Metadata::DeviceInfo::IOS);
    m.set_sdkversion("1");
    return {"metadataWritesVersionThenDevice", m.SerializeAsString(), "220131" "82010208" "01"};
}

EncodingCase requestMethodNumbers() {
    qm::network::RequestEvent req;
    req.set_method(qm::network::POST);
    req.set_url("u");
    qm::network::ResponseEvent res;
    res.set_method(qm::network::POST);
    res.set_url("u");
    res.set_duration(0.0);
    return {"methodAndUrlNumbersDiffer", req.SerializeAsString() + "|" + res.SerializeAsString(),
            "12017528" "02" "7c" "2a01756002"};
}

EncodingCase getIsDefault() {
    qm::network::RequestEvent req;
    req.set_method(qm::network::GET);
    return {"getMethodIsLeftOut", req.SerializeAsString(), ""};
}

EncodingCase logLevels() {
    qm::core::LogEvent log;
    log.set_loglevel(qm::core::LogEvent::ERROR);
    qm::core::LogEvent debug;
    debug.set_loglevel(qm::core::LogEvent::DEBUG);
    return {"errorWrittenDebugLeftOut", log.SerializeAsString() + debug.SerializeAsString(), "0804"};
}

INSTANTIATE_TEST_SUITE_P(Messages, EncodingTest,
                         ::testing::Values(valueOfA(), defaultEvent(), downTouchAtOrigin(), moveTouch(), pdfSize(),
                                           metadata(), requestMethodNumbers(), getIsDefault(), logLevels()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SchemaTest, ExceptionFormsNumberTheirFieldsDifferently) {
    EXPECT_EQ(qm::core::Exception::descriptor()->FindFieldByName("ip")->number(), 13);
    EXPECT_EQ(qm::core::OldException::descriptor()->FindFieldByName("ip")->number(), 14);
    EXPECT_EQ(qm::core::Exception::descriptor()->FindFieldByName("country")->number(), 14);
    EXPECT_EQ(qm::core::OldException::descriptor()->FindFieldByName("country")->number(), 9);
    EXPECT_EQ(qm::network::PerfResourceEvent::descriptor()->FindFieldByName("transferSize")->type(),
              google::protobuf::FieldDescriptor::TYPE_UINT64);
}

TEST(SchemaTest, PackedOnlyWhereNumericRepeated) {
    qm::CustomEvent::EventPropertyVariant v;
    v.add_doubleval(1.0);
    v.add_doubleval(2.0);
    v.add_stringval("a");
    v.add_stringval("b");
    // strings one tag each; doubles in one length-delimited run.
    EXPECT_EQ(hex(v.SerializeAsString()), "0a01610a0162" "1210000000000000f03f0000000000000040");
}

}  // namespace
