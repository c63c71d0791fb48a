/* The road of one request through kel.dll, from a C program linked against kel.lib: OpenVINO
 * networks on "CPU" from IR files, from buffers and from a plugin model DLL, inferred and
 * checked against the expected outputs; WindowsML creations end in the platform's error
 * (Wine has no Windows ML) and leaves the engine as it was; a missing and a damaged
 * openvino.dll beside kel.dll end in kel's text, with the process alive. */
#include <windows.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel/c/kel.h"

static int passed, failed;
static char bin[MAX_PATH], exe[MAX_PATH];

static void check(int ok, const char* what) {
    printf("%s %s\n", ok ? "ok  " : "FAIL", what);
    if (ok) passed++; else failed++;
}

/* The pending text, cleared; "" when there is none. */
static char* take_text(void* h) {
    uint64_t n = 0;
    kelGetExceptionStringLength(h, &n);
    char* text = calloc(n + 1, 1);
    if (n) kelGetExceptionString(h, text);
    kelResetExceptionString(h);
    return text;
}

static int no_text(void* h) {
    char* text = take_text(h);
    if (*text) printf("  unexpected: %s\n", text);
    const int ok = !*text;
    free(text);
    return ok;
}

static int text_has(void* h, const char* part) {
    char* text = take_text(h);
    const int ok = strstr(text, part) != NULL;
    if (!ok) printf("  text: %s\n", text);
    free(text);
    return ok;
}

static void* read_file(const char* name, size_t* size) {
    char path[MAX_PATH];
    snprintf(path, sizeof path, "%s\\%s", KEL_TEST_DATA_DIR, name);
    FILE* f = fopen(path, "rb");
    if (!f) return NULL;
    fseek(f, 0, SEEK_END);
    *size = (size_t)ftell(f);
    fseek(f, 0, SEEK_SET);
    void* bytes = malloc(*size ? *size : 1);
    *size = fread(bytes, 1, *size, f);
    fclose(f);
    return bytes;
}

/* One inference of the current network (the static IR: data [1,3,4,5] -> prob), its output
 * against the expected one. */
static int infer_static(void* h) {
    size_t in_size = 0, out_size = 0;
    float* in = read_file("openvino\\static.in.data.raw", &in_size);
    float* expected = read_file("openvino\\static.out.prob.raw", &out_size);
    const uint64_t dims[] = {1, 3, 4, 5};
    kelSetLayerData(h, "data", in, dims, 4);
    kelInfer(h);
    const float* out = kelGetLayerData(h, "prob");
    int ok = out && in_size == 60 * sizeof(float) && out_size == 60 * sizeof(float) && no_text(h);
    for (int i = 0; ok && i < 60; i++) ok = fabsf(out[i] - expected[i]) <= 1e-5f;
    free(in);
    free(expected);
    return ok;
}

static void path_in(char* out, const char* dir, const char* name) { snprintf(out, MAX_PATH, "%s\\%s", dir, name); }

/* Runs this program again from `dir` as the runtime check, which passes when kelCreate there
 * ends in the text of a runtime not beside kel. */
static int runtime_check_in(const char* dir) {
    char copy[MAX_PATH], command[2 * MAX_PATH];
    path_in(copy, dir, strrchr(exe, '\\') + 1);
    snprintf(command, sizeof command, "\"%s\" --runtime-check", copy);
    STARTUPINFOA si;
    memset(&si, 0, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    if (!CopyFileA(exe, copy, FALSE) || !CreateProcessA(copy, command, NULL, NULL, FALSE, 0, NULL, dir, &si, &pi))
        return 0;
    DWORD code = 1;
    WaitForSingleObject(pi.hProcess, 60000);
    GetExitCodeProcess(pi.hProcess, &code);
    CloseHandle(pi.hProcess);
    CloseHandle(pi.hThread);
    return code == 0;
}

static void copy_beside(const char* dir, const char* name) {
    char from[MAX_PATH], to[MAX_PATH];
    path_in(from, bin, name);
    path_in(to, dir, name);
    CopyFileA(from, to, FALSE);
}

static void runtime_not_beside_kel(void) {
    char temp[MAX_PATH], dir[MAX_PATH], path[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    snprintf(dir, sizeof dir, "%skel-runtime-%lu", temp, GetCurrentProcessId());
    CreateDirectoryA(dir, NULL);
    copy_beside(dir, "kel.dll");
    check(runtime_check_in(dir), "no openvino.dll beside kel.dll: kel's text");

    /* The runtime whole but openvino.dll cut short: its headers pass the file check, the
     * library does not load. */
    WIN32_FIND_DATAA found;
    char pattern[MAX_PATH];
    path_in(pattern, bin, "*.dll");
    HANDLE search = FindFirstFileA(pattern, &found);
    do {
        if (!strncmp(found.cFileName, "openvino", 8) || !strncmp(found.cFileName, "tbb", 3))
            copy_beside(dir, found.cFileName);
    } while (FindNextFileA(search, &found));
    FindClose(search);
    path_in(path, dir, "openvino.dll");
    HANDLE file = CreateFileA(path, GENERIC_WRITE, 0, NULL, OPEN_EXISTING, 0, NULL);
    SetFilePointer(file, 4096, NULL, FILE_BEGIN);
    SetEndOfFile(file);
    CloseHandle(file);
    check(runtime_check_in(dir), "openvino.dll cut short beside kel.dll: kel's text");

    char remove[2 * MAX_PATH];
    snprintf(remove, sizeof remove, "cmd /c rmdir /s /q \"%s\"", dir);
    system(remove);
}

static int runtime_check(void) {
    void* h = kelCreate();
    const int ok = text_has(h, "openvino shared library and kel shared library are not in the same directory. "
                               "Please put openvino shared library in the same directory with kel shared library.");
    const int usable = kelGetSupportEngineNumber(h) == -1 && text_has(h, "the kel engine was not created");
    kelDestory(h);
    return ok && usable ? 0 : 1;
}

int main(int argc, char** argv) {
    if (argc > 1 && !strcmp(argv[1], "--runtime-check")) return runtime_check();
    GetModuleFileNameA(NULL, exe, MAX_PATH);
    strcpy(bin, exe);
    *strrchr(bin, '\\') = 0;
    char xml[MAX_PATH], weights[MAX_PATH], plugin[MAX_PATH];
    snprintf(xml, sizeof xml, "%s\\openvino\\static.xml", KEL_TEST_DATA_DIR);
    snprintf(weights, sizeof weights, "%s\\openvino\\static.bin", KEL_TEST_DATA_DIR);

    void* h = kelCreate();
    check(no_text(h) && kelGetSupportEngineNumber(h) == 2, "kelCreate");
    kelCreateNetByFiles(h, "OpenVINO", "files", "CPU", xml, weights);
    check(no_text(h) && infer_static(h), "OpenVINO network from IR files, inferred");
    size_t xml_size = 0, weights_size = 0;
    void* xml_bytes = read_file("openvino\\static.xml", &xml_size);
    void* weights_bytes = read_file("openvino\\static.bin", &weights_size);
    kelCreateNetByBuffers(h, "OpenVINO", "buffers", "CPU", xml_bytes, xml_size, weights_bytes, weights_size);
    check(no_text(h) && infer_static(h), "OpenVINO network from buffers, inferred");
    path_in(plugin, bin, "kel_pm_openvino_static.dll");
    kelRegisterModelAsInnerIDwithString(h, "static_pm", plugin);
    kelCreateNetByBuiltin(h, "OpenVINO", "plugin", "CPU", "static_pm");
    check(no_text(h) && infer_static(h), "OpenVINO network from a plugin model DLL, inferred");

    /* WindowsML: the platform's error each time; networks, current network and inference
     * as they were. */
    const char* platform_error = "Windows Runtime error 0x80040154";  /* REGDB_E_CLASSNOTREG */
    char onnx[MAX_PATH];
    snprintf(onnx, sizeof onnx, "%s\\onnx\\static_two_io.onnx", KEL_TEST_DATA_DIR);
    kelCreateNetByFiles(h, "WindowsML", "wml_files", "CPU", onnx, NULL);
    check(text_has(h, platform_error), "WindowsML network from a file: the platform's error");
    path_in(plugin, bin, "kel_pm_windowsml_two_io.dll");
    kelRegisterModelAsInnerIDwithString(h, "two_io", plugin);
    kelCreateNetByBuiltin(h, "WindowsML", "wml_plugin", "CPU", "two_io");
    check(text_has(h, platform_error), "WindowsML network from a plugin model DLL: the platform's error");
    char current[64] = {0};
    const int length = kelGetCurrentIdentifierLength(h);
    if (length > 0 && length < 64) kelGetCurrentIdentifier(h, current);
    check(kelGetCreatedNetworkIdentifiersNumber(h) == 3 && !strcmp(current, "plugin") && infer_static(h),
          "after them, the engine as it was");
    kelSwitchNetwork(h, "files");
    kelRemoveNetwork(h, "buffers");
    check(no_text(h) && kelGetCreatedNetworkIdentifiersNumber(h) == 2 && infer_static(h), "switch and remove");
    kelDestory(h);
    free(xml_bytes);
    free(weights_bytes);

    runtime_not_beside_kel();
    printf("%d passed, %d failed\n", passed, failed);
    return failed != 0;
}
