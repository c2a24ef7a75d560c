#include "server/ingest/EventSummary.h"

#include <cstdio>

#include "wire/qm.pb.h"
#include "wire/qm_core.pb.h"
#include "wire/qm_ios.pb.h"
#include "wire/qm_network.pb.h"

namespace qlm::ingest {

namespace {

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

template <typename Enum>
std::string enumName(const std::string& name, Enum value) {
    return name.empty() ? std::to_string(static_cast<int>(value)) : name;
}

std::string method(qm::network::MethodType value) {
    return enumName(qm::network::MethodType_Name(value), value);
}

std::string identify(const qm::Identify& m) {
    std::string out = "user \"" + m.userid() + "\"";
    if (!m.name().empty()) out += ", " + m.name();
    if (!m.email().empty()) out += " <" + m.email() + ">";
    if (m.isanonymous()) out += " (anonymous)";
    if (m.traits_size() > 0) out += ", " + std::to_string(m.traits_size()) + " traits";
    return out;
}

std::string log(const qm::core::LogEvent& m) {
    std::string out = enumName(qm::core::LogEvent::LogLevel_Name(m.loglevel()), m.loglevel()) + ":";
    for (const auto& arg : m.args()) out += " " + arg.arson();
    return out;
}

std::string metadata(const qm::Metadata& m) {
    std::string out = "sdk " + (m.sdkversion().empty() ? std::string("?") : m.sdkversion());
    if (m.has_deviceinfo()) {
        const auto& device = m.deviceinfo();
        out += "; " +
               enumName(qm::Metadata::DeviceInfo::DeviceType_Name(device.devicetype()), device.devicetype());
        out += " " + device.manufacturer() + " " + device.devicename() + ", release " + device.release();
    }
    return out;
}

std::string capture(const qm::ios::PDFViewCapture& m) {
    return std::to_string(m.width()) + "x" + std::to_string(m.height()) + " pt, PDF of " +
           std::to_string(m.pdfdata().size()) + " bytes";
}

std::string touch(const qm::ios::TouchEvent& m) {
    const std::string type = enumName(qm::ios::TouchEvent::MotionType_Name(m.type()), m.type());
    if (m.moves_size() > 0) return type + " through " + std::to_string(m.moves_size()) + " points";
    return type + " at (" + number(m.x()) + ", " + number(m.y()) + ")";
}

std::string request(const qm::network::RequestEvent& m) {
    return method(m.method()) + " " + m.url() + " [" + m.reqid() + "]";
}

std::string response(const qm::network::ResponseEvent& m) {
    return std::to_string(m.status()) + " " + method(m.method()) + " " + m.url() + " in " +
           number(m.duration()) + " [" + m.reqid() + "]";
}

std::string describe(const google::protobuf::Message& message) {
    if (auto* m = dynamic_cast<const qm::Identify*>(&message)) return identify(*m);
    if (auto* m = dynamic_cast<const qm::core::LogEvent*>(&message)) return log(*m);
    if (auto* m = dynamic_cast<const qm::Metadata*>(&message)) return metadata(*m);
    if (auto* m = dynamic_cast<const qm::ios::PDFViewCapture*>(&message)) return capture(*m);
    if (auto* m = dynamic_cast<const qm::ios::TouchEvent*>(&message)) return touch(*m);
    if (auto* m = dynamic_cast<const qm::network::RequestEvent*>(&message)) return request(*m);
    if (auto* m = dynamic_cast<const qm::network::ResponseEvent*>(&message)) return response(*m);
    return message.GetTypeName();
}

}  // namespace

std::string summarizeEvent(const google::protobuf::Message& message) {
    std::string text = describe(message);
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    if (text.size() <= kMaxSummaryBytes) return text;
    // Cut on a character boundary so the summary stays UTF-8, then mark the cut.
    std::size_t cut = kMaxSummaryBytes - 3;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    text.resize(cut);
    return text + "...";
}

}  // namespace qlm::ingest
