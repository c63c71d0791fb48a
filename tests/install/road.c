/*
 * A C host (C11, no C++) built outside kel's tree against an installed kel with pkg-config:
 * registers a plugin model library that a downstream project built with the installed
 * kel_add_plugin_model, creates a network from it, infers and compares with the stored outputs.
 * Usage: road <tests/data directory> <plugin model library of onnx/static_two_io.onnx>
 */
#include <math.h>
#include <stdio.h>

#include <kel/c/kel.h>

static int read_floats(const char *dir, const char *name, float out[6]) {
    char path[4096];
    snprintf(path, sizeof path, "%s/onnx/static_two_io.%s", dir, name);
    FILE *f = fopen(path, "rb");
    const int ok = f && fread(out, sizeof(float), 6, f) == 6;
    if (f) fclose(f);
    return ok;
}

int main(int argc, char **argv) {
    float a[6], b[6], sum[6];
    if (argc != 3 || !read_floats(argv[1], "a.in.bin", a) || !read_floats(argv[1], "b.in.bin", b) ||
        !read_floats(argv[1], "sum.out.bin", sum))
        return 2;
    void *kel = kelCreate();
    kelRegisterModelAsInnerIDwithString(kel, "two_io", argv[2]);
    kelCreateNetByBuiltin(kel, "WindowsML", "plugin", "CPU", "two_io");
    const uint64_t dims[3] = {1, 2, 3};
    kelSetLayerData(kel, "a", a, dims, 3);
    kelSetLayerData(kel, "b", b, dims, 3);
    kelInfer(kel);
    const float *got = kelGetLayerData(kel, "sum");
    int failures = kelHasException(kel) || !got;
    for (int i = 0; !failures && i < 6; ++i) failures += fabsf(got[i] - sum[i]) > 1e-5f;
    kelDestory(kel);
    if (failures) fprintf(stderr, "the plugin model's network did not give the stored sums\n");
    return failures ? 1 : 0;
}
