#include "engine/MessageEncoding.h"

#include <climits>

namespace quillmere {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

void zeroDoubles(Message& m, const Reflection& r, const FieldDescriptor* f) {
    if (!f->is_repeated()) {
        if (r.GetDouble(m, f) == 0) r.SetDouble(&m, f, 0.0);
        return;
    }
    for (int i = 0; i < r.FieldSize(m, f); ++i) {
        if (r.GetRepeatedDouble(m, f, i) == 0) r.SetRepeatedDouble(&m, f, i, 0.0);
    }
}

void zeroFloats(Message& m, const Reflection& r, const FieldDescriptor* f) {
    if (!f->is_repeated()) {
        if (r.GetFloat(m, f) == 0) r.SetFloat(&m, f, 0.0f);
        return;
    }
    for (int i = 0; i < r.FieldSize(m, f); ++i) {
        if (r.GetRepeatedFloat(m, f, i) == 0) r.SetRepeatedFloat(&m, f, i, 0.0f);
    }
}

bool mayHoldFloats(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_DOUBLE:
        case FieldDescriptor::CPPTYPE_FLOAT:
        case FieldDescriptor::CPPTYPE_MESSAGE:
            return true;
        default:
            return false;
    }
}

}  // namespace

void makeZerosPositive(Message& message) {
    const auto* descriptor = message.GetDescriptor();
    const Reflection& reflection = *message.GetReflection();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_DOUBLE:
                zeroDoubles(message, reflection, field);
                break;
            case FieldDescriptor::CPPTYPE_FLOAT:
                zeroFloats(message, reflection, field);
                break;
            case FieldDescriptor::CPPTYPE_MESSAGE:
                // Map values too: a map's entries are messages to reflection. Maps whose values hold
                // no float (headers, traits) are left alone, unsynced.
                if (field->is_map() && !mayHoldFloats(*field->message_type()->map_value())) break;
                if (field->is_repeated()) {
                    for (int j = 0; j < reflection.FieldSize(message, field); ++j)
                        makeZerosPositive(*reflection.MutableRepeatedMessage(&message, field, j));
                } else if (reflection.HasField(message, field)) {
                    makeZerosPositive(*reflection.MutableMessage(&message, field));
                }
                break;
            default:
                break;
        }
    }
}

std::optional<std::size_t> encodableSize(const google::protobuf::MessageLite& message, std::string& failure) {
    const std::size_t size = message.ByteSizeLong();
    if (size > static_cast<std::size_t>(INT_MAX)) {
        failure =
            "the message of " + std::to_string(size) + " bytes is over the 2 GB that protobuf can encode";
        return std::nullopt;
    }
    return size;
}

bool encodeInto(qm::Event& event, google::protobuf::Message& message, std::string& failure) {
    // Every float of the wire passes here, the envelope's included.
    makeZerosPositive(message);
    makeZerosPositive(event);
    const auto size = encodableSize(message, failure);
    if (!size) return false;
    std::string* data = event.mutable_data();
    try {
        data->resize(*size);
    } catch (...) {
        data->clear();
        throw;
    }
    message.SerializeWithCachedSizesToArray(reinterpret_cast<uint8_t*>(data->data()));
    return true;
}

}  // namespace quillmere
