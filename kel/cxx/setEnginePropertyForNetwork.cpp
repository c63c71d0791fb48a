#include <filesystem>
#include <typeinfo>

#include "kel/cxx/engine_impl.hpp"

namespace kel {

namespace {

// The value types the facade checks; other type texts are taken as given.
const std::type_info* checkedType(const std::string& typeText) {
    if (typeText == "std::string") return &typeid(std::string);
    if (typeText == "std::filesystem::path") return &typeid(std::filesystem::path);
    if (typeText == "std::vector<std::string>") return &typeid(std::vector<std::string>);
    return nullptr;
}

}  // namespace

void MLEngine::setEnginePropertyForNetwork(const std::string& engine, const std::string& networkIdentifier,
                                           const std::string& property_key, const std::any& propertyValue) {
    const auto mutableProperties = getEngineMutableProperties(engine);
    auto it = mutableProperties.find(property_key);
    if (it == mutableProperties.end()) raise("{} no {} property! Please check.", engine, property_key);
    if (const std::type_info* expected = checkedType(it->second)) {
        if (!propertyValue.has_value() || propertyValue.type() != *expected)
            raise("{} need {} type, but the property_value is not! Please check.", property_key, it->second);
    }
    impl_->network_properties[networkIdentifier][property_key] = propertyValue;
}

}  // namespace kel
