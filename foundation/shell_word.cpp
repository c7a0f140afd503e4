// shell_word.cpp: quoting for the shell, and refusal of names that would leave their folder.

#include "foundation/shell_word.h"

#include <cstring>
#include <string_view>

#include "foundation/text.h"

namespace ap {

namespace {

constexpr char plain_characters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._:/@%+=-";

}  // namespace

ShellWord::ShellWord(const char *text) {
    if (text == nullptr) return;
    const size_t length = strnlen(text, longest_text + 1);
    if (length > longest_text) return;
    ok_ = true;

    if (length != 0 && std::strspn(text, plain_characters) == length) {
        copy_text(word_, {text, length});
        return;
    }
    char *out = word_;
    *out++ = '\'';
    for (const char c : std::string_view(text, length)) {
        if (c != '\'') {
            *out++ = c;
            continue;
        }
        for (const char quoted : std::string_view("'\\''")) *out++ = quoted;
    }
    *out = '\'';
}

bool looks_like_option(const char *text) { return text != nullptr && *text == '-'; }

bool is_file_name(const char *text) {
    return !is_empty(text) && std::strchr(text, '/') == nullptr && std::strcmp(text, ".") != 0 &&
           std::strcmp(text, "..") != 0;
}

}  // namespace ap
