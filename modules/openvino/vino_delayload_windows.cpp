// kel.dll loads openvino.dll lazily, once kel has checked that the runtime sits beside it. A
// lazily loaded DLL can lend functions but no data, so the OpenVINO back-end is compiled
// without dllimport (its calls go through the lazily bound import table). Two things follow:
// the one datum OpenVINO's inline code reads, the empty context text of its assertions, is
// kel's own copy; and the runtime's version function, a C function of the DLL that its headers
// then declare as C++, is reached under its C name.
#include <openvino/core/except.hpp>
#include <openvino/core/version.hpp>

const std::string ov::Exception::default_msg{};

namespace kel::vino::c_exports {
extern "C" const ov::Version get_openvino_version() noexcept;
}  // namespace kel::vino::c_exports

const ov::Version ov::get_openvino_version() noexcept { return kel::vino::c_exports::get_openvino_version(); }
