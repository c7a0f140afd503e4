// shell_word.h: a text from outside as one word of a shell command.
#pragma once

#include <cstddef>

namespace ap {

// Holds the word that a shell reads back as exactly `text`. A text of letters, digits and ._:/@%+=- stays as it is, so
// that plain values give the plain command; anything else is put in single quotes.
class ShellWord {
public:
    static constexpr size_t longest_text = 2307;

    explicit ShellWord(const char *text);

    // False when the text is null or too long for a word; then the command must not be run.
    bool ok() const { return ok_; }
    const char *c_str() const { return word_; }

private:
    bool ok_ = false;
    char word_[2 + 4 * longest_text + 1] = {};
};

// A value that a command would take for an option.
bool looks_like_option(const char *text);

// True when the text can be one component of a path: not empty, not "." or "..", and without "/".
bool is_file_name(const char *text);

}  // namespace ap
