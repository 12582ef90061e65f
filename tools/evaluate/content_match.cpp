#include "content_match.h"

#include <cctype>

std::string NormalisedText(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            out += text[i];
        }
    }
    while (!out.empty() && std::isspace(static_cast<unsigned char>(out.back()))) out.pop_back();
    return out;
}

bool SameContent(const std::string& readBytes, const std::string& readText,
                 const std::string& truthBytes, const std::string& truthText) {
    if (readBytes.empty() && readText.empty()) return false;
    if (!truthBytes.empty() && readBytes == truthBytes) return true;
    const std::string truth = NormalisedText(truthText);
    return NormalisedText(readText) == truth || NormalisedText(readBytes) == truth;
}
