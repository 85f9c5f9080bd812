#ifndef HARVANE_PARAMETERS_XMLREADING_H
#define HARVANE_PARAMETERS_XMLREADING_H

#include <string>

#include "platform/XmlDom.h"

namespace harvane {

// Values of an XML document, by the node to search from and an absolute XPath.
//
// Errors     PluginException with code 4 where an operation fails, and, for the
//            reading functions, where the path finds no node. ComError for an
//            empty `root`. std::bad_alloc.
// Thread     that of the document.

// The first match, or an empty node.
XmlNode SelectNode(const XmlNode& root, const wchar_t* xPath);

// UTF-8, up to the first NUL.
std::string ReadNodeText(const XmlNode& root, const wchar_t* xPath);

// As IntFromText and DoubleFromText: never a failure because of the digits.
int ReadNodeInt(const XmlNode& root, const wchar_t* xPath);
float ReadNodeFloat(const XmlNode& root, const wchar_t* xPath);

}  // namespace harvane

#endif  // HARVANE_PARAMETERS_XMLREADING_H
