/* kel-run: creates an engine through the C interface and reports the versions. */
#include <stdio.h>
#include <stdlib.h>

#include "kel/c/kel.h"

static int report_error(void *handle) {
    uint64_t length = 0;
    if (kelGetExceptionStringLength(handle, &length) == 0) {
        char *text = calloc(length + 1, 1);
        if (text && kelGetExceptionString(handle, text) == 0) fprintf(stderr, "kel-run: %s", text);
        free(text);
        kelResetExceptionString(handle);
    }
    kelDestory(handle);
    return 1;
}

int main(void) {
    void *handle = kelCreate();
    if (kelHasException(handle)) return report_error(handle);

    uint64_t length = 0;
    kelSelfVersion(handle, &length, NULL);
    char *self = calloc(length + 1, 1);
    kelSelfVersion(handle, NULL, self);

    kelVersion(handle, "OpenVINO", &length, NULL);
    char *runtime = calloc(length + 1, 1);
    kelVersion(handle, "OpenVINO", NULL, runtime);
    if (kelHasException(handle)) {
        free(self);
        free(runtime);
        return report_error(handle);
    }
    printf("kel version: %s\n", self);
    printf("OpenVINO runtime version: %s\n", runtime);
    free(self);
    free(runtime);
    kelDestory(handle);
    return 0;
}
