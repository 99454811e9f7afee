// Outside text placed in an XML document: escaped so that it stays text.
#ifndef VRX_OUTPUT_XML_TEXT_H_
#define VRX_OUTPUT_XML_TEXT_H_

#include <string>

// & < > " ' become entities; control characters that XML 1.0 cannot carry
// at all become '?'. Usable in element text and in attribute values.
std::string XmlEscape(const std::string& text);

#endif  // VRX_OUTPUT_XML_TEXT_H_
