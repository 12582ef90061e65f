// Whether a decoded code says what the truth says, however its lines end.
#pragma once

#include <string>

// `text` with CRLF and lone CR made LF and trailing whitespace dropped.
std::string NormalisedText(const std::string& text);

// A read (its raw bytes and its UTF-8 text) matches the truth when the bytes
// are the same, or the texts are once normalised: a photo's truth file may
// end lines differently from the code, and a Shift-JIS code's text is
// UTF-8 while its bytes are not. An empty read matches nothing.
bool SameContent(const std::string& readBytes, const std::string& readText,
                 const std::string& truthBytes, const std::string& truthText);
