/*
 * kel: the flat C interface.
 *
 * Conventions shared by every function below:
 * - The first argument is the handle from kelCreate. A null handle makes a call do nothing.
 * - No exception ever leaves a kel function. A failure stores its text in the handle and the
 *   function returns -1 (int results), NULL (pointer results) or nothing.
 * - While a text is pending (kelHasException is true) every other call is a no-op that writes
 *   nothing; fetch the text with kelGetExceptionStringLength + kelGetExceptionString, then clear
 *   it with kelResetExceptionString. The first failure is kept, later ones are not recorded.
 * - Strings handed out are raw bytes without a terminating zero unless the function says so:
 *   ask for the length first and allocate length + 1 bytes, zeroed, for a C string.
 * - Strings passed in are NUL-terminated UTF-8; wide strings are NUL-terminated wchar_t.
 */
#ifndef KEL_C_KEL_H
#define KEL_C_KEL_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#if defined(_WIN32)
#  if defined(KEL_BUILDING)
#    define KEL_C_API __declspec(dllexport)
#  else
#    define KEL_C_API __declspec(dllimport)
#  endif
#elif defined(__GNUC__)
#  define KEL_C_API __attribute__((visibility("default")))
#else
#  define KEL_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A host-supplied library loader: wide path in, library handle out. */
typedef void *(*kelLibraryLoader)(const wchar_t *);
/* Receives one log line, valid only during the call. */
typedef void (*kelLogCallback)(const char *);

/* ---- Handle lifecycle and error channel --------------------------------------------- */

/* Creates a handle. Always returns one: if the engine could not be built, the handle has a
 * pending text explaining why; read it, reset it, then kelDestory the handle. */
KEL_C_API void *kelCreate(void);
/* As kelCreate; the two loaders are accepted for hosts that have them and may be NULL. */
KEL_C_API void *kelCreateWithLibraryLoader(kelLibraryLoader loader, kelLibraryLoader second_loader);
/* Frees the handle and its engine. Does nothing while a text is pending: reset it first. */
KEL_C_API void kelDestory(void *handle);
/* True when a text is pending, or when handle is NULL. */
KEL_C_API bool kelHasException(void *handle);
/* Writes the pending text's byte count (no terminator) to *string_length; 0 on success, -1
 * when handle or string_length is NULL or nothing is pending. */
KEL_C_API int kelGetExceptionStringLength(void *handle, uint64_t *string_length);
/* Copies exactly the pending text's bytes into buffer, without terminator; the text stays
 * pending. 0 on success, -1 when handle or buffer is NULL or nothing is pending. */
KEL_C_API int kelGetExceptionString(void *handle, char *buffer);
/* Clears the pending text: 0, or -1 when handle is NULL or nothing was pending. */
KEL_C_API int kelResetExceptionString(void *handle);
/* Installs (or, with NULL, removes) the log callback; the version line is delivered at once. */
KEL_C_API void kelSetLogCallback(void *handle, kelLogCallback callback);
/* kel's own version: byte count to *string_length and/or the bytes to version_string, each
 * when non-NULL; no terminator is written. Both NULL is an error. */
KEL_C_API void kelSelfVersion(void *handle, uint64_t *string_length, char *version_string);
/* The runtime version of engine_name ("OpenVINO", "WindowsML"): byte count to *string_length
 * and/or the bytes plus ONE terminating zero to version_string (length + 1 bytes). */
KEL_C_API void kelVersion(void *handle, const char *engine_name, uint64_t *string_length,
                          char *version_string);

/* ---- Engines and devices --------------------------------------------------------------
 * Index-based lists: ...Number returns the count (or -1); ...Length(index) the byte length of
 * item index; the Get function copies exactly that many bytes (no terminator). An index
 * outside 0..count-1 fails with "index <i> is out of range!". */

KEL_C_API int kelGetSupportEngineNumber(void *handle);
KEL_C_API int kelGetSupportEngineLength(void *handle, const int index);
KEL_C_API void kelGetSupportEngine(void *handle, const int index, char *engine_name);
/* Devices of an engine ("AUTO" first). */
KEL_C_API int kelGetSupportDeviceNumber(void *handle, const char *engine_name);
KEL_C_API int kelGetSupportDeviceLength(void *handle, const char *engine_name, const int index);
KEL_C_API void kelGetSupportDevice(void *handle, const char *engine_name, const int index, char *device_name);

/* ---- Inner models from plugin model libraries (see kel/c/kel_plugin_model.h) ----------- */

/* Loads the library at model_path (UTF-8 / wide) and registers its model as model_id. The
 * library stays loaded until kelUnregisterInnerID or kelDestory. */
KEL_C_API void kelRegisterModelAsInnerIDwithString(void *handle, const char *model_id, const char *model_path);
KEL_C_API void kelRegisterModelAsInnerIDwithWString(void *handle, const char *model_id,
                                                    const wchar_t *model_path);
/* Refused while a network created from the model exists. */
KEL_C_API void kelUnregisterInnerID(void *handle, const char *model_id);
/* Inner model ids registered for an engine (index-based list). */
KEL_C_API int kelGetSupportBuiltinModelNumber(void *handle, const char *engine_name);
KEL_C_API int kelGetSupportBuiltinModelLength(void *handle, const char *engine_name, const int index);
KEL_C_API void kelGetSupportBuiltinModelID(void *handle, const char *engine_name, const int index,
                                           char *builtin_model_id);

/* ---- Networks ----------------------------------------------------------------------------
 * A created network becomes the current one; layer calls and kelInfer act on it. The device
 * name is checked by the engine: OpenVINO always; WindowsML only once its device list has
 * been asked for (kelGetSupportDeviceNumber), and before that any name runs on the CPU. */

/* From files: the model file, and its weights file or NULL (OpenVINO then looks beside the
 * model; WindowsML takes one .onnx file). */
KEL_C_API void kelCreateNetByFiles(void *handle, const char *engine_name, const char *identifier,
                                   const char *device, const char *network_file, const char *weights_file);
KEL_C_API void kelCreateNetByFilesWithWstring(void *handle, const char *engine_name, const char *identifier,
                                              const char *device, const wchar_t *network_file,
                                              const wchar_t *weights_file);
/* From memory. The description buffer is copied; an OpenVINO weights buffer is used in place
 * and must outlive the network. A weights buffer of size 0 is left out. */
KEL_C_API void kelCreateNetByBuffers(void *handle, const char *engine_name, const char *identifier,
                                     const char *device, const void *network_buffer,
                                     const uint64_t network_buffer_size, const void *weights_buffer,
                                     const uint64_t weights_buffer_size);
/* From a registered inner model. */
KEL_C_API void kelCreateNetByBuiltin(void *handle, const char *engine_name, const char *identifier,
                                     const char *device, const char *builtin_model_id);
/* The current network cannot be removed. */
KEL_C_API void kelRemoveNetwork(void *handle, const char *network_id);
KEL_C_API void kelSwitchNetwork(void *handle, const char *identifier);
KEL_C_API int kelGetCreatedNetworkIdentifiersNumber(void *handle);
KEL_C_API int kelGetCreatedNetworkIdentifierLength(void *handle, const int index);
KEL_C_API void kelGetCreatedNetworkIdentifier(void *handle, const int index, char *identifier);
/* Engine and device of a network, as a length then a copy. */
KEL_C_API int kelGetNetworkEngineLength(void *handle, const char *identifier);
KEL_C_API void kelGetNetworkEngine(void *handle, const char *identifier, char *engine_name);
KEL_C_API int kelGetNetworkDeviceLength(void *handle, const char *identifier);
KEL_C_API void kelGetNetworkDevice(void *handle, const char *identifier, char *engine_name);
KEL_C_API int kelGetCurrentEngineLength(void *handle);
KEL_C_API void kelGetCurrentEngine(void *handle, char *engine_name);
KEL_C_API int kelGetCurrentIdentifierLength(void *handle);
KEL_C_API void kelGetCurrentIdentifier(void *handle, char *identifier_name);
KEL_C_API int kelGetCurrentNetworkDeviceLength(void *handle);
KEL_C_API void kelGetCurrentNetworkDevice(void *handle, char *device_name);

/* Reserved: they do nothing, touch nothing and never set a text (the lengths are -1). */
KEL_C_API int kelGetPluginModelVersionLengthWithString(void *handle, const char *model_path);
KEL_C_API int kelGetPluginModelVersionLengthWithWstring(void *handle, const wchar_t *model_path);
KEL_C_API void kelGetPluginModelVersionWithString(void *handle, const char *model_path, char *version);
KEL_C_API void kelGetPluginModelVersionWithWstring(void *handle, const wchar_t *model_path, char *version);

/* ---- Layers of the current network --------------------------------------------------------- */

/* Binds data (dim_length dimensions in dim_buffer) to a layer. OpenVINO uses the memory in
 * place until the next bind; WindowsML copies it at each kelInfer. Both must stay valid until
 * the inference that uses them returns. */
KEL_C_API void kelSetLayerData(void *handle, const char *layer_name, const void *data,
                               const uint64_t *dim_buffer, const uint64_t dim_length);
/* The layer's memory, owned by kel (do not free); NULL on failure. Outputs hold the results of
 * the last kelInfer. */
KEL_C_API void *kelGetLayerData(void *handle, const char *layer_name);
/* Count to *dim_length and the dimensions to dim_buffer, each when non-NULL; dim_buffer must
 * hold the full count. */
KEL_C_API void kelGetLayerDims(void *handle, const char *layer_name, uint64_t *dim_buffer, uint64_t *dim_length);
/* Element size to *precision_size, the name's byte length to *precision_length and its bytes
 * ("FP32", "U8", ..., no terminator) to precision, each when non-NULL. */
KEL_C_API void kelGetLayerPrecision(void *handle, const char *layer_name, uint64_t *precision_size,
                                    int *precision_length, char *precision);
KEL_C_API int kelGetInputLayerNumber(void *handle);
KEL_C_API int kelGetOutputLayerNumber(void *handle);
KEL_C_API int kelGetInputLayerLength(void *handle, const int index);
KEL_C_API int kelGetOutputLayerLength(void *handle, const int index);
KEL_C_API void kelGetInputLayer(void *handle, const int index, char *layer_name);
/* As kelGetInputLayer, but its own two failures leave the bare message as the text (no
 * "[KEL Exception]" prefix and location). */
KEL_C_API void kelGetOutputLayer(void *handle, const int index, char *layer_name);
KEL_C_API void kelInfer(void *handle);

/* ---- Properties ---------------------------------------------------------------------------
 * All return 0 on success and -1 on failure. Device property type ids: -1 none, 0 empty,
 * 1 string, 2 map of string to float, 3 uint64_t, 4 float, 5 bool (one byte). */

/* With properties_number set: the count only. Otherwise entry key_index: key length, key
 * bytes, value length, value bytes, each when its pointer is non-NULL; leave at least one of
 * the four NULL (fetch a key and its value in two calls). */
KEL_C_API int kelGetEngineMutableProperties(void *handle, int *properties_number, int key_index,
                                            int *key_string_length, char *key_string,
                                            int *value_string_length, char *value_string,
                                            const char *engine_name);
KEL_C_API int kelGetDeviceSupportPropertiesNumber(void *handle, int *properties_number,
                                                  const char *engine_name, const char *device);
KEL_C_API int kelGetDeviceSupportPropertiesByIndex(void *handle, int *property_length, char *property,
                                                   int index, const char *engine_name, const char *device);
KEL_C_API int kelGetDevicePropertyTypeID(void *handle, int *type_id, const char *engine_name,
                                         const char *device, const char *supported_property);
/* The typed readers need verify_type_id equal to the property's type id. */
KEL_C_API int kelGetDevicePropertyTypeString(void *handle, int *value_length, char *value, int verify_type_id,
                                             const char *engine_name, const char *device,
                                             const char *supported_property);
/* With key_number set: the entry count only; otherwise entry key_index's key length, key
 * bytes and float value, each when non-NULL. */
KEL_C_API int kelGetDevicePropertyTypeUnorderedMap_String_Float(void *handle, int *key_number, int key_index,
                                                                int *key_length, char *key, float *value,
                                                                int verify_type_id, const char *engine_name,
                                                                const char *device,
                                                                const char *supported_property);
/* Type ids 3, 4 and 5: writes 8, 4 or 1 bytes to value. */
KEL_C_API int kelGetDevicePropertyTypeGeneral(void *handle, void *value, int verify_type_id,
                                              const char *engine_name, const char *device,
                                              const char *supported_property);
/* property_type "std::string": property_value is a NUL-terminated string; "std::filesystem::path":
 * a NUL-terminated wide string; "std::vector<std::string>": a std::vector<std::string> of the
 * C++ interface. Any other type name is ignored (returns 0, sets nothing). */
KEL_C_API int kelSetEnginePropertyForNetwork(void *handle, const char *engine_name,
                                             const char *network_identifier, const char *property_name,
                                             const char *property_type, const void *property_value);

#ifdef __cplusplus
}
#endif

#endif /* KEL_C_KEL_H */
