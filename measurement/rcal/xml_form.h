// The XML form of a calibration.
#pragma once

#include "measurement/rcal/document.h"
#include "qv/xml_file.h"

namespace qv {

/// Moves a calibration's contents to and from a tree. Elements are read by name, in any order; what is absent leaves
/// its member as it is. Every number is written with 14 significant digits.
class RCalXml {
public:
    explicit RCalXml(CRCalFile& file) : m_document(*file.m_document) {}

    /// Reads from the element "rcal".
    void load(const CXMLFile::CNode& root);
    /// A new element "rcal", the caller's to insert.
    CXMLFile::CNode* save() const;

private:
    CRCalFile::Document& m_document;
};

}  // namespace qv
