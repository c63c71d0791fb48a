/*
 * The interface a plugin model library exports so that kel can register the model it carries
 * (kel::MLEngine::registerModelAsInnerID, kelRegisterModelAsInnerIDwithString).
 *
 * A plugin model library carries one model for one engine in one version. Strings are handed
 * out as a length call followed by a copy call that writes exactly that many bytes, without a
 * terminator. `engine` and `version` arguments are the zero-terminated texts kel read before.
 * The model buffers stay owned by the model object until kelModelDestory.
 * For "OpenVINO" a model is two buffers, the XML description then the weights; for
 * "WindowsML" it is one ONNX buffer.
 *
 * cmake/KelPluginModel.cmake builds such a library from model files.
 */
#ifndef KEL_C_KEL_PLUGIN_MODEL_H
#define KEL_C_KEL_PLUGIN_MODEL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void *(*kelModelCreateFn)(void);
typedef void (*kelModelDestoryFn)(void *model);
typedef int (*kelModelGetEngineNumberFn)(void *model);
typedef int (*kelModelGetEngineNameLengthFn)(void *model, int engine_index);
typedef void (*kelModelGetEngineNameFn)(void *model, char *engine_name, int engine_index);
typedef int (*kelModelGetVersionNumberFn)(void *model, const char *engine);
typedef int (*kelModelGetVersionNameLengthFn)(void *model, const char *engine, int version_index);
typedef void (*kelModelGetVersionNameFn)(void *model, char *version_name, const char *engine,
                                         int version_index);
typedef int (*kelModelGetModelNumberFn)(void *model, const char *engine, const char *version);
typedef uint64_t (*kelModelGetModelSizeFn)(void *model, const char *engine, const char *version,
                                           int model_index);
typedef const void *(*kelModelGetModelBufferFn)(void *model, const char *engine,
                                                const char *version, int model_index);

#ifdef __cplusplus
}
#endif

#endif /* KEL_C_KEL_PLUGIN_MODEL_H */
