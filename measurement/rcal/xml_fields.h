// Reading and writing the attributes and bodies of a calibration's elements through one description of each element.
#pragma once

#include <cstdint>
#include <string>

#include "core/text.h"
#include "measurement/rcal/fields.h"
#include "qv/array.h"
#include "qv/string.h"
#include "qv/values.h"
#include "qv/xml_file.h"

namespace qv::rcalXml {

using rcalFields::Worded;

CString formatReal(double value);
/// The values joined by commas.
CString formatList(const TArray<double>& values);
void parseList(const CString& text, TArray<double>& values);
/// Pairs "x,y" separated by "|" CR LF; as many as the shorter array has.
std::u16string formatPairs(const TArray<double>& x, const TArray<double>& y);
/// Replaces both arrays. Reading ends at the first pair that is none.
void parsePairs(const CString& text, TArray<double>& x, TArray<double>& y);

/// Takes attribute values out of an element. An absent one leaves its member.
class Reader {
public:
    explicit Reader(const CXMLFile::CNode& node) : m_node(node) {}

    Reader& operator()(const char16_t* name, double& value) {
        if (const CString* text = find(name)) value = text::wtof(*text);
        return *this;
    }
    Reader& operator()(const char16_t* name, int32_t& value) {
        if (const CString* text = find(name)) value = text::wtol(*text);
        return *this;
    }
    Reader& operator()(const char16_t* name, uint32_t& value) {
        if (const CString* text = find(name)) value = static_cast<uint32_t>(text::wtoll(*text));
        return *this;
    }
    Reader& operator()(const char16_t* name, bool& value) {
        if (const CString* text = find(name)) value = CBool::Parse(*text);
        return *this;
    }
    Reader& operator()(const char16_t* name, CString& value) {
        if (const CString* text = find(name)) value = *text;
        return *this;
    }
    /// An unknown word is value 0.
    template <class E>
    Reader& operator()(const char16_t* name, Worded<E> value) {
        const CString* text = find(name);
        if (text == nullptr) return *this;
        value.value = E{};
        for (size_t i = 0; i < value.count; ++i) {
            if (text->Equals(value.words[i])) value.value = static_cast<E>(i);
        }
        return *this;
    }

private:
    const CString* find(const char16_t* name) const {
        const CXMLFile::ATTRIB* attribute = m_node.attributes.Find(name);
        return attribute == nullptr ? nullptr : &attribute->value;
    }
    const CXMLFile::CNode& m_node;
};

/// Appends attributes to an element, in the order of the calls.
class Writer {
public:
    explicit Writer(CXMLFile::CNode& node) : m_node(node) {}

    Writer& operator()(const char16_t* name, double& value) { return add(name, formatReal(value)); }
    Writer& operator()(const char16_t* name, int32_t& value) { return add(name, CString::FromFormat(u"%d", value)); }
    Writer& operator()(const char16_t* name, uint32_t& value) { return add(name, CString::FromFormat(u"%u", value)); }
    Writer& operator()(const char16_t* name, bool& value) { return add(name, CBool::ToString(value)); }
    Writer& operator()(const char16_t* name, CString& value) { return add(name, value); }
    /// A value outside the words is written as "error".
    template <class E>
    Writer& operator()(const char16_t* name, Worded<E> value) {
        const auto index = static_cast<size_t>(static_cast<uint32_t>(value.value));
        return add(name, CString(index < value.count ? value.words[index] : u"error"));
    }

private:
    Writer& add(const char16_t* name, const CString& value) {
        m_node.attributes.Add({CString(name), value});
        return *this;
    }
    CXMLFile::CNode& m_node;
};

}  // namespace qv::rcalXml
