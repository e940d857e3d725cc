// SPDX-License-Identifier: MIT
/* film FILE: a second of silence, through the installed plug-in. */
#include <stdio.h>

#include <qf_host.h>

static int fail(void) {
    fprintf(stderr, "%s\n", qf_error_text());
    return 1;
}

int main(int count, char** arguments) {
    static const unsigned char silence[3840];
    qf_plugin* plugin;
    qf_job* job;
    qf_file* file;
    int i;
    if (count != 2 || qf_host_version() < QF_HOST_VERSION) return 2;
    if (qf_plugin_open(NULL, &plugin) != QF_OK || qf_job_new(&job) != QF_OK) return fail();
    if (qf_job_set_audio(job, "pcm", 48000, 2, 16) != QF_OK) return fail();
    if (qf_file_open(plugin, arguments[1], job, &file) != QF_OK) return fail();
    for (i = 0; i < 50; ++i) {
        const qf_packet packet = {sizeof packet, QF_AUDIO, silence, sizeof silence, i * 200000, QF_NO_TIME, 200000, 1, 0};
        if (qf_file_write(file, &packet) != QF_OK) return fail();
    }
    if (qf_file_close(file) != QF_OK) return fail();
    qf_job_free(job);
    qf_plugin_close(plugin);
    return 0;
}
