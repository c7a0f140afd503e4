// gateway_request.cpp: builds the text message and the gateway's HTTP request.
//
// The message is the signature in brackets, the body and the code, with the operator's texts in GB2312; it travels
// URL-encoded. The gateway's host is configuration.

#include "portal/gateway_request.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "applatform/system.h"
#include "foundation/config_value.h"
#include "foundation/text.h"

static_assert(sizeof(portal_public_info) == 4 + 64 + 64 + 32 + 128);
static_assert(offsetof(portal_public_info, signature) == 132 && offsetof(portal_public_info, body) == 164);

namespace ap {

namespace {

constexpr char left_bracket[] = "\u3010", right_bracket[] = "\u3011";
constexpr size_t converted_size = 256;
constexpr size_t message_size = 1024;

// A text that cannot be converted is left out.
template <size_t N> void convert(const char (&field)[N], char (&out)[converted_size]) {
    char text[N + 1];
    copy_text(text, field_text(field));
    if (system_convert_code_format(text, "gb2312", out, sizeof out) != 0) out[0] = '\0';
    out[sizeof out - 1] = '\0';
}

void write_message(const portal_public_info &info, unsigned int code, char (&message)[message_size]) {
    char signature[converted_size] = {}, body[converted_size] = {};
    convert(info.signature, signature);
    convert(info.body, body);
    std::snprintf(message, sizeof message, "%s%s%s%s%d，仅限本终端使用，在120秒内有效!", left_bracket, signature,
                  right_bracket, body, static_cast<int>(code));
}

bool is_plain(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// The empty text when it does not fit.
void url_encode(const char *text, EncodedMessage &out) {
    size_t length = 0;
    for (; *text != '\0'; ++text) {
        char piece[4] = {*text == ' ' ? '+' : *text};
        if (!is_plain(*text) && *text != ' ')
            std::snprintf(piece, sizeof piece, "%%%02X", static_cast<unsigned int>(static_cast<unsigned char>(*text)));
        const size_t piece_length = std::strlen(piece);
        if (length + piece_length >= sizeof out) {
            out[0] = '\0';
            return;
        }
        std::memcpy(out + length, piece, piece_length);
        length += piece_length;
    }
    out[length] = '\0';
}

}  // namespace

void encode_message(const portal_public_info &info, unsigned int code, EncodedMessage &encoded) {
    char message[message_size];
    write_message(info, code, message);
    url_encode(message, encoded);
}

void write_gateway_request(const portal_public_info &info, uint64_t phone, const EncodedMessage &content, char *url,
                           size_t url_size) {
    const ConfigValue host("portal.sms_gateway");
    const auto identity = field_text(info.identity), password = field_text(info.password);
    std::snprintf(url, url_size, "http://%s:8009/sys_port/gateway/?id=%.*s&pwd=%.*s&to=%llu&content=%s&time=",
                  host.empty() ? "sms-gateway" : host.c_str(), static_cast<int>(identity.size()), identity.data(),
                  static_cast<int>(password.size()), password.data(), static_cast<unsigned long long>(phone), content);
}

}  // namespace ap
