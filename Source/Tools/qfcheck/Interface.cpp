// SPDX-License-Identifier: MIT
#include "Interface.h"

namespace Interface {

namespace {

// The record that a field holds, if it is one.
std::string RecordWithin(const Field& field) {
    if (std::string(field.m_Record) != "EncodeParam") return "";
    if (std::string(field.m_Name) == "videoParam") return "VideoParam";
    return std::string(field.m_Name) == "audioParam" ? "AudioParam" : "";
}

} // namespace

const Field& FieldOf(const std::string& record, const std::string& name) {
    for (const Field& field : kFields) {
        if (field.m_Record == record && field.m_Name == name) return field;
    }
    throw std::logic_error("no field " + record + "." + name);
}

std::size_t SizeOf(const std::string& record) {
    for (const RecordSize& size : kSizes) {
        if (size.m_Record == record) return size.Size();
    }
    throw std::logic_error("no record " + record);
}

const char* ExportOf(const std::string& function) {
    for (const Export& candidate : kExports) {
        const std::string name = candidate.m_Name;
        if (name == function || name.find("_Z" + std::to_string(function.size()) + function) == 0) {
            return candidate.m_Name;
        }
    }
    throw std::logic_error("no export " + function);
}

Record::Record(const std::string& type, unsigned char gap)
    : m_Type(type), m_Octets(std::make_unique<GuardedOctets>(Repeated(SizeOf(type), gap))) {
    Clear(type, 0);
}

void Record::Clear(const std::string& type, std::size_t from) {
    for (const Field& field : kFields) {
        if (field.m_Record != type) continue;
        const std::string within = RecordWithin(field);
        if (within.empty()) {
            std::memset(m_Octets->Data() + from + field.At(), 0, field.Width());
        } else {
            Clear(within, from + field.At());
        }
    }
}

Record::Place Record::Find(const std::string& name) const {
    const std::size_t dot = name.find('.');
    if (dot == std::string::npos) {
        const Field& field = FieldOf(m_Type, name);
        return {field.At(), field.Width()};
    }
    const Field& outer = FieldOf(m_Type, name.substr(0, dot));
    const Field& inner = FieldOf(RecordWithin(outer), name.substr(dot + 1));
    return {outer.At() + inner.At(), inner.Width()};
}

} // namespace Interface
