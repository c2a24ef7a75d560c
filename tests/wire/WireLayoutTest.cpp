// The wire layout as the ingest server and the replay page read it, written out by hand: every field
// of every message (number, name, type, and whether it is singular, repeated, a map or a member of
// a one-of) and every value of every enumeration. Held against the classes generated from the
// schema, so that a change to the schema, or to this table, fails here first.
#include <gtest/gtest.h>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"
#include "wire/qm_utils.pb.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;

// One line per field: number, name, type, then "singular", "repeated" (maps too) or "oneof NAME".
struct MessageLayout {
    const char* name;
    const char* fields;
};

const MessageLayout kMessages[] = {
    {"qm.EventList",
          "1 events qm.Event repeated\n"
          "2 appID string singular\n"
          "3 recordingID string singular\n"
          "4 visitedURLs string repeated\n"},
    {"qm.Event",
          "1 time double singular\n"
          "2 type string singular\n"
          "3 data bytes singular\n"
          "4 threadID uint32 singular\n"
          "5 seqID uint32 singular\n"
          "6 stackTrace qm.Event.StackFrame repeated\n"
          "9 fileMap map<string, string> repeated\n"
          "10 sessionID uint32 singular\n"
          "11 timeOffset double singular\n"},
    {"qm.Event.StackFrame",
          "1 lineNumber uint32 singular\n"
          "2 columnNumber uint32 singular\n"
          "3 fileName string singular\n"
          "4 functionName string singular\n"},
    {"qm.Activate", ""},
    {"qm.Metadata",
          "1 release string singular\n"
          "2 username string singular\n"
          "3 browserInfo qm.Metadata.BrowserInfo oneof platform\n"
          "4 sdkVersion string singular\n"
          "5 scriptVersion string singular\n"
          "6 country string singular\n"
          "7 region string singular\n"
          "8 city string singular\n"
          "9 latitude float singular\n"
          "10 longitude float singular\n"
          "11 ip string singular\n"
          "12 isInactive bool singular\n"
          "13 outsideIntegrations qm.Metadata.OutsideIntegrations singular\n"
          "14 userFingerprint string singular\n"
          "15 initialPageLoadMetrics qm.InitialPageLoadMetrics singular\n"
          "16 deviceInfo qm.Metadata.DeviceInfo oneof platform\n"
          "17 scriptSrc string singular\n"
          "18 appInfo qm.Metadata.AppInfo singular\n"},
    {"qm.Metadata.DeviceInfo",
          "1 deviceType qm.Metadata.DeviceInfo.DeviceType singular\n"
          "2 deviceName string singular\n"
          "3 manufacturer string singular\n"
          "4 release string singular\n"},
    {"qm.Metadata.BrowserInfo",
          "1 href string singular\n"
          "2 codeName string singular\n"
          "3 language string singular\n"
          "4 name string singular\n"
          "5 platform string singular\n"
          "6 useragent string singular\n"
          "7 version string singular\n"
          "8 referrer string singular\n"
          "9 isLocalhost bool singular\n"},
    {"qm.Metadata.AppInfo",
          "1 appName string singular\n"},
    {"qm.Metadata.OutsideIntegrations",
          "1 hasIntercom bool singular\n"
          "2 hasZendesk bool singular\n"
          "3 hasDesk bool singular\n"
          "4 hasZendeskChat bool singular\n"},
    {"qm.InitialPageLoadMetrics",
          "1 initialPageLoadTime uint32 singular\n"
          "2 timeToFirstByte uint32 singular\n"
          "3 largestContentfulPaintTime uint32 singular\n"},
    {"qm.ios.PDFViewCapture",
          "1 pdfData bytes singular\n"
          "2 width uint32 singular\n"
          "3 height uint32 singular\n"},
    {"qm.ios.TouchEvent",
          "1 type qm.ios.TouchEvent.MotionType singular\n"
          "2 x float singular\n"
          "3 y float singular\n"
          "4 moves qm.ios.TouchEvent.Move repeated\n"
          "5 eventTime double singular\n"},
    {"qm.ios.TouchEvent.Move",
          "1 x float singular\n"
          "2 y float singular\n"
          "3 eventTime double singular\n"},
    {"qm.core.LogEvent",
          "1 logLevel qm.core.LogEvent.LogLevel singular\n"
          "2 args qm.utils.Value repeated\n"
          "3 tag string singular\n"},
    {"qm.network.RequestEvent",
          "1 reqId string singular\n"
          "2 url string singular\n"
          "3 headers map<string, string> repeated\n"
          "4 body qm.utils.Value singular\n"
          "5 method qm.network.MethodType singular\n"
          "6 referrer string singular\n"
          "7 mode string singular\n"
          "8 credentials string singular\n"},
    {"qm.network.ResponseEvent",
          "1 reqId string singular\n"
          "2 status uint32 singular\n"
          "3 headers map<string, string> repeated\n"
          "4 body qm.utils.Value singular\n"
          "5 url string singular\n"
          "6 count uint32 singular\n"
          "7 release string singular\n"
          "8 browserUseragent string singular\n"
          "9 userName string singular\n"
          "10 userEmail string singular\n"
          "11 ip string singular\n"
          "12 method qm.network.MethodType singular\n"
          "13 duration double singular\n"
          "14 operationName string singular\n"
          "15 operationType string singular\n"
          "16 browserHref string singular\n"},
    {"qm.network.PerfResourceEvent",
          "1 url string singular\n"
          "2 startTime double singular\n"
          "3 duration double singular\n"
          "4 initiatorType qm.network.PerfResourceEvent.InitiatorType singular\n"
          "5 status uint32 singular\n"
          "6 failed bool singular\n"
          "7 transferSize uint64 singular\n"},
    {"qm.network.NetworkStatusEvent",
          "1 online bool singular\n"
          "2 effectiveType qm.network.NetworkStatusEvent.EffectiveType singular\n"},
    {"qm.Identify",
          "1 userID string singular\n"
          "2 name string singular\n"
          "3 email string singular\n"
          "4 isAnonymous bool singular\n"
          "5 traits map<string, string> repeated\n"
          "6 isUpdate bool singular\n"},
    {"qm.utils.Value",
          "2 arson string singular\n"},
    {"qm.CustomEvent",
          "1 eventName string singular\n"
          "2 eventProperties map<string, qm.CustomEvent.EventPropertyVariant> repeated\n"},
    {"qm.CustomEvent.EventPropertyVariant",
          "1 stringVal string repeated\n"
          "2 doubleVal double repeated\n"
          "3 boolVal bool repeated\n"},
    {"qm.Activity",
          "1 transactions qm.Activity.Transaction repeated\n"
          "2 pageURL string singular\n"
          "3 count uint32 singular\n"},
    {"qm.Activity.Transaction",
          "1 id string singular\n"
          "2 uuid uint32 singular\n"
          "3 activeTime float singular\n"
          "4 rawTime float singular\n"
          "5 didSucceed bool singular\n"},
    {"qm.ExcludedUser",
          "1 alternateID string singular\n"},
    {"qm.Buffer",
          "1 eventCount uint32 singular\n"
          "2 hrefActivityCounts map<string, uint32> repeated\n"
          "3 userID string singular\n"
          "4 hrefMaxScroll map<string, float> repeated\n"},
    {"qm.DebugLog",
          "1 message string singular\n"},
    {"qm.core.Exception",
          "1 exceptionType qm.core.Exception.ExceptionType singular\n"
          "2 errorType string singular\n"
          "3 message qm.utils.Value singular\n"
          "4 release string singular\n"
          "5 browserHref string singular\n"
          "6 browserUseragent string singular\n"
          "7 userName string singular\n"
          "8 userEmail string singular\n"
          "9 level string singular\n"
          "10 logger string singular\n"
          "11 tags map<string, string> repeated\n"
          "12 extra map<string, string> repeated\n"
          "13 ip string singular\n"
          "14 country string singular\n"
          "15 region string singular\n"
          "16 city string singular\n"
          "17 latitude float singular\n"
          "18 longitude float singular\n"
          "19 count uint32 singular\n"
          "20 hashCode string singular\n"},
    {"qm.core.OldException",
          "1 exceptionType qm.core.OldException.ExceptionType singular\n"
          "2 errorType string singular\n"
          "3 message qm.utils.Value singular\n"
          "4 release string singular\n"
          "5 browserHref string singular\n"
          "6 browserUseragent string singular\n"
          "7 userName string singular\n"
          "8 userEmail string singular\n"
          "9 country string singular\n"
          "10 region string singular\n"
          "11 city string singular\n"
          "12 latitude float singular\n"
          "13 longitude float singular\n"
          "14 ip string singular\n"},
};

// Value and name of each value, in order.
struct EnumLayout {
    const char* name;
    const char* values;
};

const EnumLayout kEnums[] = {
    {"qm.Metadata.DeviceInfo.DeviceType", "0 ANDROID, 1 IOS"},
    {"qm.ios.TouchEvent.MotionType", "0 DOWN, 1 UP, 2 MOVE"},
    {"qm.core.LogEvent.LogLevel", "0 DEBUG, 1 INFO, 2 LOG, 3 WARN, 4 ERROR"},
    {"qm.network.MethodType", "0 GET, 1 HEAD, 2 POST, 3 PUT, 4 DELETE, 5 CONNECT, 6 OPTIONS, 7 TRACE, 8 PATCH"},
    {"qm.network.PerfResourceEvent.InitiatorType", "0 LINK, 1 SCRIPT, 2 CSS, 3 IMG, 4 IMAGE, 5 OTHER, 6 NAVIGATION, 7 TRACK"},
    {"qm.network.NetworkStatusEvent.EffectiveType", "0 UNKNOWN, 1 NONE, 2 SLOW2G, 3 TWOG, 4 THREEG, 5 FOURG"},
    {"qm.core.Exception.ExceptionType", "0 UNHANDLED_REJECTION, 1 WINDOW, 2 MESSAGE, 3 CONSOLE, 4 ANDROID"},
    {"qm.core.OldException.ExceptionType", "0 UNHANDLED_REJECTION, 1 WINDOW"},
};

std::string typeOf(const FieldDescriptor& field) {
    switch (field.type()) {
        case FieldDescriptor::TYPE_MESSAGE:
            return field.message_type()->full_name();
        case FieldDescriptor::TYPE_ENUM:
            return field.enum_type()->full_name();
        default:
            return field.type_name();
    }
}

std::string layoutOf(const Descriptor& message) {
    std::vector<const FieldDescriptor*> byNumber;
    for (int i = 0; i < message.field_count(); ++i) byNumber.push_back(message.field(i));
    std::sort(byNumber.begin(), byNumber.end(), [](auto* a, auto* b) { return a->number() < b->number(); });
    std::string text;
    for (const FieldDescriptor* each : byNumber) {
        const FieldDescriptor& field = *each;
        std::string type = typeOf(field);
        if (field.is_map()) {
            type = "map<" + typeOf(*field.message_type()->map_key()) + ", " +
                   typeOf(*field.message_type()->map_value()) + ">";
        }
        std::string label = field.is_repeated() ? "repeated" : "singular";
        if (const auto* oneof = field.real_containing_oneof()) label = "oneof " + oneof->name();
        text += std::to_string(field.number()) + " " + field.name() + " " + type + " " + label + "\n";
    }
    return text;
}

std::string valuesOf(const google::protobuf::EnumDescriptor& enumeration) {
    std::string text;
    for (int i = 0; i < enumeration.value_count(); ++i) {
        if (i) text += ", ";
        text += std::to_string(enumeration.value(i)->number()) + " " + enumeration.value(i)->name();
    }
    return text;
}

void collect(const Descriptor& d, std::set<std::string>& messages, std::set<std::string>& enums) {
    if (d.options().map_entry()) return;
    messages.insert(d.full_name());
    for (int i = 0; i < d.enum_type_count(); ++i) enums.insert(d.enum_type(i)->full_name());
    for (int i = 0; i < d.nested_type_count(); ++i) collect(*d.nested_type(i), messages, enums);
}

TEST(WireLayout, EveryMessageHasExactlyTheseFields) {
    const auto* pool = DescriptorPool::generated_pool();
    for (const auto& expected : kMessages) {
        SCOPED_TRACE(expected.name);
        const Descriptor* message = pool->FindMessageTypeByName(expected.name);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(layoutOf(*message), expected.fields);
    }
}

TEST(WireLayout, EveryEnumerationHasExactlyTheseValues) {
    const auto* pool = DescriptorPool::generated_pool();
    for (const auto& expected : kEnums) {
        SCOPED_TRACE(expected.name);
        const auto* enumeration = pool->FindEnumTypeByName(expected.name);
        ASSERT_NE(enumeration, nullptr);
        EXPECT_EQ(valuesOf(*enumeration), expected.values);
    }
}

TEST(WireLayout, TheSchemaHoldsNoMessageOrEnumerationBeyondTheTable) {
    std::set<std::string> messages, enums;
    for (const auto* file : {qm::Event::descriptor()->file(), qm::core::LogEvent::descriptor()->file(),
                             qm::ios::TouchEvent::descriptor()->file(), qm::network::RequestEvent::descriptor()->file(),
                             qm::utils::Value::descriptor()->file()}) {
        EXPECT_EQ(file->syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO3) << file->name();
        for (int i = 0; i < file->message_type_count(); ++i) collect(*file->message_type(i), messages, enums);
        for (int i = 0; i < file->enum_type_count(); ++i) enums.insert(file->enum_type(i)->full_name());
    }
    std::set<std::string> tabled, tabledEnums;
    for (const auto& m : kMessages) tabled.insert(m.name);
    for (const auto& e : kEnums) tabledEnums.insert(e.name);
    EXPECT_EQ(messages, tabled);
    EXPECT_EQ(enums, tabledEnums);
    EXPECT_EQ(tabled.size(), 29u);
    EXPECT_EQ(tabledEnums.size(), 8u);
}

}  // namespace
