#include "kel/c/frame.hpp"

using kel::c::frame;
using kel::c::require;

extern "C" KEL_C_API int kelGetEngineMutableProperties(void* handle, int* properties_number, int key_index,
                                                       int* key_string_length, char* key_string,
                                                       int* value_string_length, char* value_string,
                                                       const char* engine_name) {
    return frame(handle, -1, [&](kel::MLEngine& e) {
        if (!properties_number && !key_string_length && !key_string && !value_string_length && !value_string)
            kel::raise("properties_number, key_string_length, key_string, value_string_length and value_string "
                       "pointers both empty!");
        require(engine_name, "engine_name pointer is empty!");
        const auto properties = e.getEngineMutableProperties(engine_name);
        if (properties_number) {
            *properties_number = static_cast<int>(properties.size());
            return 0;
        }
        // With all four outputs set the key list stays empty and the access below fails:
        // hosts fetch a key and its value in separate calls.
        std::vector<std::string> keys;
        if (!key_string_length || !key_string || !value_string_length || !value_string) {
            if (key_index < 0) kel::raise("key_index value is {}, less than 0!", key_index);
            const std::size_t last = properties.size() - 1;
            if (static_cast<std::size_t>(key_index) > last)
                kel::raise("key_index value is {}, less than {}!", key_index, last);
            for (const auto& entry : properties) keys.push_back(entry.first);
        }
        const std::string& key = kel::checkedIndex(keys, static_cast<std::size_t>(key_index));
        if (key_string_length) *key_string_length = kel::c::lengthOf(key);
        if (key_string) kel::c::copyOut(key, key_string);
        const std::string& value = properties.at(key);
        if (value_string_length) *value_string_length = kel::c::lengthOf(value);
        if (value_string) kel::c::copyOut(value, value_string);
        return 0;
    });
}
