// echo_daemon.cpp: a daemon that answers each message with itself, at every address that it is given:
//
//   echo_daemon unix:echo tcp:127.0.0.1:5000 udp:127.0.0.1:5000 &
//   apctl msg ask unix:echo hello

#include <cstdio>
#include <cstring>

#include "apsupport/msgserver.h"

// A peer that came and went without a message has a length of 0, a failed receive a negative one.
static int answer_with_itself(struct ms_session *session, char *data, int length) {
    if (length > 0) ms_send(session, data, length);
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 2 || strcmp(argv[1], "--help") == 0) {
        fprintf(stderr, "usage: %s ADDRESS...   (tcp:IP:PORT, udp:IP:PORT, unix:NAME)\n", argv[0]);
        return argc < 2 ? 2 : 0;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    for (int i = 1; i < argc; ++i) {
        if (ms_server(argv[i], answer_with_itself) != nullptr) continue;
        fprintf(stderr, "%s: cannot serve %s\n", argv[0], argv[i]);
        return 1;
    }
    ms_run();
}
