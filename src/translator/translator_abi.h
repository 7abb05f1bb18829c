/* The C interface of the translator library ("kavipstranslator"), shared by the agent and the
 * stand-in.
 *
 * Texts are UTF-16 in the machine's byte order, zero-terminated. A text handed to a function
 * belongs to the caller and is read only during the call; a text handed to a sink belongs to the
 * library and is valid only during the sink's call. Nothing is allocated on one side and freed on
 * the other, and nothing throws.
 *
 * Threads: every function may be called by several threads at once. Initialisations are counted:
 * the library is in use from the first one to the last shutdown, and the others are called only in
 * between.
 */
#ifndef KORVANE_TRANSLATOR_TRANSLATOR_ABI_H
#define KORVANE_TRANSLATOR_TRANSLATOR_ABI_H

#include <stdint.h>

#ifdef __cplusplus
typedef char16_t KavipsChar;
extern "C" {
#else
typedef uint_least16_t KavipsChar;
#endif

#define KAVIPS_TRANSLATOR_ABI_VERSION 1u

/* Takes one value of a function; an answer other than 0 ends the listing, which is a success. */
typedef int32_t (*KavipsValueSink)(void* context, const KavipsChar* value);

typedef uint32_t (*KavipsTranslatorAbiVersion)(void);
/* extensionsPath: the folder that the library was loaded from. 0, or an error of the library. */
typedef int32_t (*KavipsTranslatorInitialize)(const KavipsChar* extensionsPath);
/* Hands every value of a function ("LocalIPs") to the sink. 0, or an error; 2: no such function. */
typedef int32_t (*KavipsTranslatorGetFunctionValues)(const KavipsChar* name, KavipsValueSink sink,
                                                     void* context);
/* 1 when the file or directory exists, 0 when it does not. */
typedef int32_t (*KavipsTranslatorFileExists)(const KavipsChar* path);
typedef void (*KavipsTranslatorShutdown)(void);

#define KAVIPS_TRANSLATOR_ABI_VERSION_NAME "kavipsTranslatorAbiVersion"
#define KAVIPS_TRANSLATOR_INITIALIZE_NAME "kavipsTranslatorInitialize"
#define KAVIPS_TRANSLATOR_GET_FUNCTION_VALUES_NAME "kavipsTranslatorGetFunctionValues"
#define KAVIPS_TRANSLATOR_FILE_EXISTS_NAME "kavipsTranslatorFileExists"
#define KAVIPS_TRANSLATOR_SHUTDOWN_NAME "kavipsTranslatorShutdown"

#ifdef __cplusplus
}
#endif

#endif
