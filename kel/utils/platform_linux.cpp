// Linux side of the platform seam: ELF instead of PE, dladdr, cpuid.h, O_EXCL files.
#include <cpuid.h>
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "kel/utils/platform.hpp"
#include "kel/utils/text.hpp"

namespace kel::utils {

const std::wstring& libraryPrefix() {
    static const std::wstring v = L"lib";
    return v;
}
const std::wstring& libraryExtension() {
    static const std::wstring v = L"so";
    return v;
}
const std::wstring& pathSeparator() {
    static const std::wstring v = L"/";
    return v;
}
const char* osName() { return "Linux"; }

bool bindLazilyLinkedLibrary(const std::wstring&) { return true; }

std::wstring currentModuleDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&currentModuleDirectory), &info) == 0 || !info.dli_fname)
        throw std::runtime_error(std::string("GetModuleHandle returned ") + (dlerror() ?: "0"));
    std::filesystem::path file = info.dli_fname;
    // The main program may be reported by the name it was started with.
    if (file.empty() || !file.has_parent_path()) file = std::filesystem::read_symlink("/proc/self/exe");
    file = std::filesystem::absolute(file);
    std::wstring name = file.wstring();
    auto pos = name.rfind(L'/');
    return pos == std::wstring::npos ? std::wstring() : name.substr(0, pos);
}

namespace {

std::string machineText(std::uint16_t machine) {
    switch (machine) {
        case EM_X86_64: return "LINUX-AMD64";
        case EM_AARCH64: return "LINUX-ARM64";
        default: return "LINUX-UNKNOWN";
    }
}

template <class T>
bool readAt(std::ifstream& in, std::uint64_t offset, T& out) {
    in.clear();
    in.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(in.read(reinterpret_cast<char*>(&out), sizeof(T)));
}

// A position-independent executable is ET_DYN too; DF_1_PIE in its dynamic section tells
// it apart from a shared library, as the DLL flag does for PE images.
bool isPositionIndependentExecutable(std::ifstream& in, const Elf64_Ehdr& eh) {
    if (eh.e_phentsize != sizeof(Elf64_Phdr)) return eh.e_phnum != 0;
    for (std::uint16_t i = 0; i < eh.e_phnum; ++i) {
        Elf64_Phdr ph{};
        if (!readAt(in, eh.e_phoff + std::uint64_t(i) * sizeof(Elf64_Phdr), ph)) return true;
        if (ph.p_type != PT_DYNAMIC) continue;
        const std::uint64_t count = ph.p_filesz / sizeof(Elf64_Dyn);
        for (std::uint64_t k = 0; k < count; ++k) {
            Elf64_Dyn dyn{};
            if (!readAt(in, ph.p_offset + k * sizeof(Elf64_Dyn), dyn)) return true;
            if (dyn.d_tag == DT_NULL) break;
            if (dyn.d_tag == DT_FLAGS_1 && (dyn.d_un.d_val & DF_1_PIE)) return true;
        }
    }
    return false;
}

}  // namespace

std::string getSystemArchitecture() {
    utsname u{};
    if (uname(&u) != 0) return "LINUX-UNKNOWN";
    if (std::strcmp(u.machine, "x86_64") == 0) return "LINUX-AMD64";
    if (std::strcmp(u.machine, "aarch64") == 0) return "LINUX-ARM64";
    return "LINUX-UNKNOWN";
}

std::string getLibraryArchitecture(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    if (!in) {
        std::cerr << "Failed to open shared library file." << std::endl;
        return "LINUX-UNKNOWN";
    }
    Elf64_Ehdr eh{};
    if (!readAt(in, 0, eh) || std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0) {
        std::cerr << "Not a valid ELF image." << std::endl;
        return "LINUX-UNKNOWN";
    }
    return machineText(eh.e_machine);
}

bool checkLibraryImage(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    if (!in) {
        std::cerr << "Failed to open file: " << wstringToString(path) << std::endl;
        return false;
    }
    Elf64_Ehdr eh{};
    if (!readAt(in, 0, eh)) return false;
    if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0) return false;
    if (eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_ident[EI_DATA] != ELFDATA2LSB) return false;
    if (eh.e_type != ET_DYN) return false;
    if (isPositionIndependentExecutable(in, eh)) return false;

    const std::string system = getSystemArchitecture();
    const std::string library = getLibraryArchitecture(path);
    if (system != library) {
        std::cerr << "[KEL Warning]: " << wstringToString(path) << " architecture is " << library
                  << ", " << osName() << " OS architecture is " << system << ". "
                  << "Please notice, two architectures not same.";
    }
    return true;
}

bool hostHasSse42() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
    return (c & bit_SSE4_2) != 0;
}

std::string currentThreadIdText() { return std::to_string(static_cast<long>(syscall(SYS_gettid))); }

bool writeNewFile(const std::filesystem::path& path, std::string_view bytes, bool& created) {
    created = false;
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    created = true;
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    // Some file systems report a full disk only when the file is closed.
    const bool closed = ::close(fd) == 0;
    return closed && written == static_cast<ssize_t>(bytes.size());
}

FileRead readFileStart(const std::filesystem::path& path, void* into, std::size_t size) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return FileRead::cannot_open;
    auto* at = static_cast<char*>(into);
    std::size_t left = size;
    while (left) {
        const ssize_t got = ::read(fd, at, left);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        at += got;
        left -= static_cast<std::size_t>(got);
    }
    ::close(fd);
    return left ? FileRead::cannot_read : FileRead::done;
}

// The C stream under std::wcerr and std::cerr is one, and glibc drops output of the other
// width once its orientation is set; so the line goes out as UTF-8.
void printPathError(const std::string& text, const std::filesystem::path& path) {
    std::cerr << text << pathToString(path);
}

}  // namespace kel::utils
