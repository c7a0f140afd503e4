/* flash.c: one flash request from a script: flash info|lock|unlock|erase DEVICE. "lock", "unlock" and "erase" take the whole
 * device; "info" prints its type, size and erase size. Prints why a request fails; exit status 1. */
#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

static const struct {
    const char *name;
    unsigned long request;
} verbs[] = {{"info", MEMGETINFO}, {"lock", MEMLOCK}, {"unlock", MEMUNLOCK}, {"erase", MEMERASE}};

static int perform(int device, unsigned long request) {
    struct mtd_info_user info;
    struct erase_info_user all = {0, 0};

    if (ioctl(device, MEMGETINFO, &info) != 0) return -1;
    if (request == MEMGETINFO) return printf("type %d size %u erase %u\n", info.type, info.size, info.erasesize) < 0;
    all.length = info.size;
    return ioctl(device, request, &all);
}

int main(int argc, char **argv) {
    size_t i;

    for (i = 0; argc == 3 && i < sizeof verbs / sizeof verbs[0]; ++i) {
        if (strcmp(argv[1], verbs[i].name) != 0) continue;
        if (perform(open(argv[2], O_RDWR | O_CLOEXEC), verbs[i].request) == 0) return 0;
        fprintf(stderr, "flash %s %s: %s\n", argv[1], argv[2], strerror(errno));
        return 1;
    }
    fputs("usage: flash info|lock|unlock|erase DEVICE\n", stderr);
    return 2;
}
