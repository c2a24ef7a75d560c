#include "server/ingest/EventJson.h"

#include <google/protobuf/util/json_util.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "wire/qm_ios.pb.h"

namespace qlm::ingest {

namespace {

std::string printJson(const google::protobuf::Message& message) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    options.always_print_primitive_fields = true;
    std::string out;
    const auto status = google::protobuf::util::MessageToJsonString(message, &out, options);
    if (!status.ok()) throw std::runtime_error("cannot print " + message.GetTypeName() + " as JSON");
    return out;
}

}  // namespace

std::string renderEventJson(const google::protobuf::Message& message) {
    const auto* capture = dynamic_cast<const qm::ios::PDFViewCapture*>(&message);
    if (capture == nullptr) return printJson(message);
    qm::ios::PDFViewCapture withoutPdf;
    withoutPdf.set_width(capture->width());
    withoutPdf.set_height(capture->height());
    nlohmann::json json = nlohmann::json::parse(printJson(withoutPdf));
    json["pdfData"] = {{"size", capture->pdfdata().size()}};
    return json.dump();
}

}  // namespace qlm::ingest
