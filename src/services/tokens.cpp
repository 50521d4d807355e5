// tokens: helpers over lists of words
// no format
// invariant: no empty item is ever made
#include "tokens.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace km {

void tokenize(const ustring& text, vector& out, char16_t separator) {
    for (unsigned start = 0; start < text.length();) {
        const unsigned end = std::min(text.find(separator, start), text.length());
        if (end > start)
            out.push_back(new ustring(text, start, end - start));
        start = end + 1;
    }
}

void tokenize(const char* text, unsigned length, vector& out, int separator) {
    for (unsigned start = 0; start < length;) {
        const void* hit = std::memchr(text + start, separator, length - start);
        const unsigned end =
            hit ? static_cast<unsigned>(static_cast<const char*>(hit) - text) : length;
        if (end > start) {
            auto item = std::make_unique<ustring>();
            item->assign(text + start, end - start);
            out.push_back(item.release());
        }
        start = end + 1;
    }
}

void tokens_to_string(const vector& tokens, ustring& out, int separator) {
    out.eos(0);
    for (int i = 0; i < tokens.size(); ++i) {
        if (i)
            out += static_cast<char16_t>(separator);
        if (const auto* item = tokens.at<ustring>(i))
            out += *item;
    }
}

void tokens_to_string(const vector& tokens, char*& out, unsigned& length, int separator) {
    std::string joined;
    length = 0;
    for (int i = 0; i < tokens.size(); ++i) {
        if (i)
            joined += static_cast<char>(separator);
        const size_t before = joined.size();
        if (const auto* item = tokens.at<ustring>(i))
            joined += item->mbcs_str();
        length += static_cast<unsigned>(joined.size() - before) + 1;
    }
    out = new char[std::max<size_t>(length, joined.size()) + 1]();
    std::memcpy(out, joined.data(), joined.size());
}

namespace {

bool holds(const vector& tokens, const ustring& wanted, int ignore_case) {
    for (int i = 0; i < tokens.size(); ++i)
        if (const auto* item = tokens.at<ustring>(i))
            if (item->compare(wanted, ignore_case ? 1 : 0) == 0)
                return true;
    return false;
}

} // namespace

int find_next_difference(const vector& a, const vector& b, ustring& out, int restart,
                         int ignore_case) {
    static int position = 0;
    if (restart)
        position = 0;
    while (position < b.size()) {
        const int at = position++;
        const auto* item = b.at<ustring>(at);
        if (!item || holds(a, *item, ignore_case))
            continue;
        out = *item;
        return at == 0 ? -1 : 1;
    }
    return 0;
}

long find_data(const char* pattern, unsigned length, const char* data, unsigned size) {
    const auto at = std::string_view(data, size).find(std::string_view(pattern, length));
    return at == std::string_view::npos ? -1 : static_cast<long>(at);
}

} // namespace km
