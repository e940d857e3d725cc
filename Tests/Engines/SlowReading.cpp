// SPDX-License-Identifier: MIT
// Loaded into qfmux, makes it wait for each packet, so that a short film takes as long as a long one. Signals are
// let through.
#include <dlfcn.h>
#include <unistd.h>

extern "C" int av_read_frame(void* context, void* packet) {
    using Read = int (*)(void*, void*);
    static const auto read = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "av_read_frame"));
    usleep(100000);
    return read(context, packet);
}
