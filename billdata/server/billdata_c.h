/* The component for C and for any language with a foreign-function interface.
 *
 * Objects are created by programmatic id ("Orn_BillData_Velt.PosData"), methods are called by
 * name with their arguments as a JSON object keyed by parameter names, and the answer comes back
 * as JSON text: {"result": ..., "out": {...in/out arguments...}}. Record sets travel as
 * {"fields": [...], "rows": [[...], ...]}, dates as "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS".
 *
 * Errors: a function that fails returns NULL or -1 and records the error for the calling thread:
 * billdata_last_error_number() and billdata_last_error_description() read it until the next call
 * on that thread. Every thread has its own session context (connection string, year, period),
 * filled by the classes' Init methods. An object is used by one thread at a time. */
#ifndef BILLDATA_SERVER_BILLDATA_C_H
#define BILLDATA_SERVER_BILLDATA_C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct billdata_object billdata_object;

/* A new object of the class registered under prog_id (case-insensitive), or NULL (error 429 for
 * an unknown id). Release it with billdata_release. */
billdata_object* billdata_create(const char* prog_id);

/* Calls `method` with the arguments in `args_json` (a JSON object; NULL or "" for none). On
 * success returns 0 and sets *out_json to the answer, which the caller frees with billdata_free.
 * On failure returns -1, sets *out_json to NULL and records the error (the method's own error,
 * or 438/448/449/450/13/5 when the call itself is wrong; then nothing was called). */
int billdata_call(billdata_object* object, const char* method, const char* args_json,
                  char** out_json);

/* Frees a text returned by billdata_call. NULL is allowed. */
void billdata_free(char* text);

/* The number of this thread's last error, 0 when the last call succeeded. */
int32_t billdata_last_error_number(void);
/* Its description (UTF-8), "" when none; valid until the next call on this thread. */
const char* billdata_last_error_description(void);
/* When the failed operation could not undo its work either (its rollback failed too): that
 * failure's number and description; "" otherwise. Valid until the next call on this thread. */
const char* billdata_last_error_cleanup(void);

/* The library's version ("0.1.0"), and the lines `billdata --version` prints (the version, then
 * each driver compiled in with its engine's version). Static texts, valid for the whole run. */
const char* billdata_version(void);
const char* billdata_version_text(void);

/* Releases an object. NULL is allowed. */
void billdata_release(billdata_object* object);

#ifdef __cplusplus
}
#endif

#endif /* BILLDATA_SERVER_BILLDATA_C_H */
