#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetDevicePropertyTypeUnorderedMap_String_Float(
    void* handle, int* key_number, int key_index, int* key_length, char* key, float* value, int verify_type_id,
    const char* engine_name, const char* device, const char* supported_property) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        require(engine_name, "engine_name pointer is empty!");
        require(device, "device pointer is empty!");
        require(supported_property, "supported_property pointer is empty!");
        if (!key_number && !key && !key_length && !value)
            kel::raise("key_number, key, key_length and value pointers both empty!");
        const auto property = kel::c::verifiedProperty(e, engine_name, device, supported_property, verify_type_id);
        const auto map = std::get<std::unordered_map<std::string, float>>(property);
        if (key_number) {
            *key_number = static_cast<int>(map.size());
            return 0;
        }
        std::vector<std::string> keys;
        for (const auto& entry : map) keys.push_back(entry.first);
        // Widened with its sign and compared unsigned: a negative index is "larger" too.
        const auto index = static_cast<std::uint64_t>(static_cast<std::int64_t>(key_index));
        if (index > static_cast<std::uint64_t>(map.size()) - 1)
            kel::raise("key_index value is {}, larger than {}!", key_index, static_cast<int>(map.size()) - 1);
        // An empty map passes the test above (size - 1 wraps): the checked access refuses it.
        const std::string& name = kel::checkedIndex(keys, static_cast<std::size_t>(index));
        if (key_length) *key_length = kel::c::lengthOf(name);
        if (key) kel::c::copyOut(name, key);
        if (value) *value = map.at(name);
        return 0;
    });
}
