/*
 * A C host (C11, no C++) built outside kel's tree against an installed kel with pkg-config:
 * registers a plugin model library that a downstream project built with the installed
 * kel_add_plugin_model, creates a network from it, infers and compares with the stored
 * outputs; then the error channel: a failure is kept, later calls do nothing.
 * Usage: road <tests/data directory> <plugin model library of onnx/static_two_io.onnx>
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kel/c/kel.h>

static int failures = 0;
#define CHECK(cond, what)                                                \
    do {                                                                 \
        if (!(cond)) {                                                   \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, (what)); \
            ++failures;                                                  \
        }                                                                \
    } while (0)

/* The handle's pending text, cleared (caller frees), or NULL. */
static char *take_text(void *kel) {
    uint64_t n = 0;
    if (kelGetExceptionStringLength(kel, &n) != 0) return NULL;
    char *text = calloc(n + 1, 1);
    kelGetExceptionString(kel, text);
    kelResetExceptionString(kel);
    return text;
}

static void read_floats(const char *dir, const char *name, float out[6]) {
    char path[4096];
    snprintf(path, sizeof path, "%s/onnx/%s", dir, name);
    FILE *f = fopen(path, "rb");
    CHECK(f && fread(out, sizeof(float), 6, f) == 6, path);
    if (f) fclose(f);
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s <data dir> <plugin model library>\n", argv[0]);
        return 2;
    }
    float a[6], b[6], sum[6], product[6];
    read_floats(argv[1], "static_two_io.a.in.bin", a);
    read_floats(argv[1], "static_two_io.b.in.bin", b);
    read_floats(argv[1], "static_two_io.sum.out.bin", sum);
    read_floats(argv[1], "static_two_io.product.out.bin", product);

    void *kel = kelCreate();
    kelRegisterModelAsInnerIDwithString(kel, "two_io", argv[2]);
    CHECK(kelGetSupportBuiltinModelNumber(kel, "WindowsML") == 1, "one inner model");
    kelCreateNetByBuiltin(kel, "WindowsML", "plugin", "CPU", "two_io");
    const uint64_t dims[3] = {1, 2, 3};
    kelSetLayerData(kel, "a", a, dims, 3);
    kelSetLayerData(kel, "b", b, dims, 3);
    kelInfer(kel);
    const float *got_sum = kelGetLayerData(kel, "sum");
    const float *got_product = kelGetLayerData(kel, "product");
    char *text = take_text(kel);
    CHECK(text == NULL, text ? text : "");
    free(text);
    for (int i = 0; got_sum && got_product && i < 6; ++i)
        CHECK(fabsf(got_sum[i] - sum[i]) < 1e-5f && fabsf(got_product[i] - product[i]) < 1e-5f, "outputs");

    /* A failure is kept; the next call does nothing until the text is cleared. */
    kelSwitchNetwork(kel, "nope");
    CHECK(kelGetCreatedNetworkIdentifiersNumber(kel) == -1, "calls are no-ops while a text is pending");
    text = take_text(kel);
    CHECK(text && strstr(text, "Network id [nope] not exists or created. Please check."), "the switch error");
    free(text);
    CHECK(kelGetCreatedNetworkIdentifiersNumber(kel) == 1, "one network");

    kelDestory(kel);
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    return failures ? 1 : 0;
}
