/*
 * A C host (C11, no C++) walking the road of one request through kel's flat interface:
 * handle, engines, devices, networks from files, from buffers and from a plugin model
 * library, inputs, inference, outputs with their dims and precision, and the error channel.
 * It is built outside kel's tree, against an installed kel, with pkg-config.
 * Usage: road <tests/data directory> <plugin model library of onnx/static_two_io.onnx for WindowsML>
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kel/c/kel.h>

static int failures = 0;
#define CHECK(cond, ...)                                   \
    do {                                                   \
        if (!(cond)) {                                     \
            fprintf(stderr, "%s:%d: ", __FILE__, __LINE__); \
            fprintf(stderr, __VA_ARGS__);                  \
            fputc('\n', stderr);                           \
            ++failures;                                    \
        }                                                  \
    } while (0)

static const char *data_dir;

/* The pending text (caller frees), or NULL. Does not clear it. */
static char *pending(void *kel) {
    uint64_t n = 0;
    if (kelGetExceptionStringLength(kel, &n) != 0) return NULL;
    char *text = calloc(n + 1, 1);
    kelGetExceptionString(kel, text);
    return text;
}

/* Fails the check with the handle's text when one is pending, then clears it. */
static void expect_clean(void *kel, const char *what) {
    char *text = pending(kel);
    CHECK(text == NULL, "%s failed: %s", what, text ? text : "");
    free(text);
    kelResetExceptionString(kel);
}

/* Expects a pending text containing `part`, then clears it. */
static void expect_error(void *kel, const char *part) {
    char *text = pending(kel);
    CHECK(text && strstr(text, part), "expected an error with \"%s\", got \"%s\"", part, text ? text : "(none)");
    free(text);
    kelResetExceptionString(kel);
}

static void *read_file(const char *relative, uint64_t *size) {
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", data_dir, relative);
    FILE *f = fopen(path, "rb");
    if (!f) return NULL;
    fseek(f, 0, SEEK_END);
    long n = ftell(f);
    fseek(f, 0, SEEK_SET);
    void *bytes = malloc(n > 0 ? (size_t)n : 1);
    *size = fread(bytes, 1, (size_t)n, f);
    fclose(f);
    return bytes;
}

static char *copy_text(int length, void (*get)(void *, const int, char *), void *kel, int index) {
    char *text = calloc((size_t)length + 1, 1);
    get(kel, index, text);
    return text;
}

static void expect_floats(const float *actual, const char *expected_file, size_t count, float tol, const char *what) {
    uint64_t size = 0;
    float *expected = read_file(expected_file, &size);
    CHECK(expected && size == count * sizeof(float), "%s: cannot read %s", what, expected_file);
    if (!expected || !actual) {
        free(expected);
        return;
    }
    for (size_t i = 0; i < count; ++i)
        if (fabsf(actual[i] - expected[i]) > tol) {
            CHECK(0, "%s: element %zu is %f, expected %f", what, i, actual[i], expected[i]);
            break;
        }
    free(expected);
}

/* Runs the "static" IR network (data [1,3,4,5] -> prob) that is current. */
static void run_static(void *kel, const char *what) {
    uint64_t size = 0;
    float *input = read_file("openvino/static.in.data.raw", &size);
    const uint64_t dims[4] = {1, 3, 4, 5};
    kelSetLayerData(kel, "data", input, dims, 4);
    kelInfer(kel);
    uint64_t rank = 0, out_dims[8] = {0};
    kelGetLayerDims(kel, "prob", NULL, &rank);
    CHECK(rank == 4, "%s: rank %llu", what, (unsigned long long)rank);
    kelGetLayerDims(kel, "prob", out_dims, NULL);
    CHECK(out_dims[1] == 3 && out_dims[3] == 5, "%s: dims", what);
    uint64_t element = 0;
    int name_length = 0;
    char precision[8] = {0};
    kelGetLayerPrecision(kel, "prob", &element, &name_length, precision);
    CHECK(element == 4 && name_length == 4 && strcmp(precision, "FP32") == 0, "%s: precision %s", what, precision);
    expect_floats(kelGetLayerData(kel, "prob"), "openvino/static.out.prob.raw", 60, 1e-4f, what);
    expect_clean(kel, what);
    free(input);
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s <data dir> <plugin model library>\n", argv[0]);
        return 2;
    }
    data_dir = argv[1];
    void *kel = kelCreate();
    expect_clean(kel, "kelCreate");

    /* Engines and devices. */
    const int engines = kelGetSupportEngineNumber(kel);
    CHECK(engines == 2, "engine count %d", engines);
    for (int i = 0; i < engines; ++i) {
        char *name = copy_text(kelGetSupportEngineLength(kel, i), kelGetSupportEngine, kel, i);
        CHECK(strcmp(name, i == 0 ? "OpenVINO" : "WindowsML") == 0, "engine %d is %s", i, name);
        free(name);
    }
    kelGetSupportEngine(kel, engines, (char[16]){0});
    expect_error(kel, "index 2 is out of range!");
    CHECK(kelGetSupportDeviceNumber(kel, "OpenVINO") >= 2, "OpenVINO devices");
    int length = kelGetSupportDeviceLength(kel, "WindowsML", 0);
    char device[16] = {0};
    kelGetSupportDevice(kel, "WindowsML", 0, device);
    CHECK(length == 4 && strcmp(device, "AUTO") == 0, "first WindowsML device %s", device);
    expect_clean(kel, "devices");

    /* A network from files. */
    char xml[4096], bin[4096];
    snprintf(xml, sizeof xml, "%s/openvino/static.xml", data_dir);
    snprintf(bin, sizeof bin, "%s/openvino/static.bin", data_dir);
    kelCreateNetByFiles(kel, "OpenVINO", "files", "CPU", xml, bin);
    expect_clean(kel, "kelCreateNetByFiles");
    run_static(kel, "files");

    /* The same network from buffers, the description freed right after creation. */
    uint64_t xml_size = 0, bin_size = 0;
    void *xml_bytes = read_file("openvino/static.xml", &xml_size);
    void *bin_bytes = read_file("openvino/static.bin", &bin_size);
    kelCreateNetByBuffers(kel, "OpenVINO", "buffers", "CPU", xml_bytes, xml_size, bin_bytes, bin_size);
    memset(xml_bytes, 0, xml_size);
    free(xml_bytes);
    expect_clean(kel, "kelCreateNetByBuffers");
    run_static(kel, "buffers");

    /* A plugin model library for the other engine. */
    kelRegisterModelAsInnerIDwithString(kel, "two_io", argv[2]);
    CHECK(kelGetSupportBuiltinModelNumber(kel, "WindowsML") == 1, "inner model count");
    kelCreateNetByBuiltin(kel, "WindowsML", "plugin", "AUTO", "two_io");
    expect_clean(kel, "kelCreateNetByBuiltin");
    CHECK(kelGetInputLayerNumber(kel) == 2 && kelGetOutputLayerNumber(kel) == 2, "two_io layers");
    uint64_t a_size = 0, b_size = 0;
    float *a = read_file("onnx/static_two_io.a.in.bin", &a_size);
    float *b = read_file("onnx/static_two_io.b.in.bin", &b_size);
    const uint64_t dims3[3] = {1, 2, 3};
    kelSetLayerData(kel, "a", a, dims3, 3);
    kelSetLayerData(kel, "b", b, dims3, 3);
    kelInfer(kel);
    expect_floats(kelGetLayerData(kel, "sum"), "onnx/static_two_io.sum.out.bin", 6, 1e-5f, "plugin sum");
    expect_floats(kelGetLayerData(kel, "product"), "onnx/static_two_io.product.out.bin", 6, 1e-5f, "plugin product");
    char current_device[8] = {0};
    CHECK(kelGetCurrentNetworkDeviceLength(kel) == 3, "AUTO resolves to a device name");
    kelGetCurrentNetworkDevice(kel, current_device);
    CHECK(strcmp(current_device, "CPU") == 0, "AUTO resolved to %s", current_device);
    expect_clean(kel, "plugin network");
    free(a);
    free(b);

    /* The error channel along the way: a failure is kept, later calls are no-ops. */
    kelSwitchNetwork(kel, "nope");
    kelSwitchNetwork(kel, "files");
    char *text = pending(kel);
    CHECK(text && strstr(text, "Network id [nope] not exists or created. Please check."), "switch error");
    free(text);
    CHECK(kelGetCreatedNetworkIdentifiersNumber(kel) == -1, "calls are no-ops while a text is pending");
    kelResetExceptionString(kel);
    CHECK(kelGetCreatedNetworkIdentifiersNumber(kel) == 3, "three networks");
    kelSwitchNetwork(kel, "files");
    run_static(kel, "switched back");

    /* Both engines agree on one ONNX model. */
    float inputs[60];
    for (int i = 0; i < 60; ++i) inputs[i] = (float)((i * 37) % 19) / 7.0f - 1.0f;
    float results[2][60];
    const char *engine_names[2] = {"OpenVINO", "WindowsML"};
    char onnx[4096];
    snprintf(onnx, sizeof onnx, "%s/openvino/static.onnx", data_dir);
    for (int e = 0; e < 2; ++e) {
        char id[32];
        snprintf(id, sizeof id, "onnx-%d", e);
        kelCreateNetByFiles(kel, engine_names[e], id, "CPU", onnx, NULL);
        const uint64_t dims[4] = {1, 3, 4, 5};
        kelSetLayerData(kel, "data", inputs, dims, 4);
        kelInfer(kel);
        const float *out = kelGetLayerData(kel, "prob");
        expect_clean(kel, engine_names[e]);
        if (out) memcpy(results[e], out, sizeof results[e]);
    }
    for (int i = 0; i < 60; ++i)
        if (fabsf(results[0][i] - results[1][i]) > 1e-3f) {
            CHECK(0, "engines disagree at %d: %f vs %f", i, results[0][i], results[1][i]);
            break;
        }

    kelDestory(kel);
    free(bin_bytes); /* the weights are only wrapped: freed once their network is gone */
    if (failures) fprintf(stderr, "%d check(s) failed\n", failures);
    else printf("the C host got every expected output\n");
    return failures ? 1 : 0;
}
