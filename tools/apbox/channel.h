// channel.h: messages between apbox, a box's keeper and its process 1: a few words, and descriptors with them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/apbox/files.h"

namespace box {

using Words = std::vector<std::string>;

// The number that a word is; 0 when it is none.
int number_in(const std::string &word);

struct Message {
    Words words;  // never empty
    std::vector<Descriptor> descriptors;
};

// Sends over a socket of kind SOCK_SEQPACKET. False when the other side is gone or the message is too long.
bool send_message(int socket, const Words &words, const std::vector<int> &descriptors = {});

// The next message; nothing when the other side is gone.
std::optional<Message> receive_message(int socket);

std::pair<Descriptor, Descriptor> socket_pair();

}  // namespace box
