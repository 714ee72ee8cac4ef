// Text for pictures and pages.
#ifndef AOSTORAGE_TOOLS_XML_TEXT_H_
#define AOSTORAGE_TOOLS_XML_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace aotool {

// A name, or another run of bytes, as the content of an XML element or of an attribute in quotes:
// escaped as Shown does, then for XML.
std::string XmlText(std::string_view bytes);
// As XmlText, for what Shown has made fit already.
std::string XmlTextOfShown(std::string_view shown);

// A name as Shown gives it, cut at the end so that it takes about so many pixels; empty when hardly
// anything would be left of it. Not yet fit for XML.
std::string CutToWidth(std::string_view bytes, double width, double fontSize);

// About how many pixels a text takes.
double WidthOfText(std::string_view shown, double fontSize);

// "1.2 MB"
std::string ShortSize(std::uint64_t bytes);

// With one digit behind the point, none where it is 0.
std::string Pixels(double value);

}  // namespace aotool

#endif  // AOSTORAGE_TOOLS_XML_TEXT_H_
