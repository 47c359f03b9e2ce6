/* The C interface used from C, as a program in another language uses it: create an object by
 * programmatic id, call methods with JSON arguments, read errors, free and release. */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "billdata/server/billdata_c.h"

/* From the tests' service class (fake_service.cpp). */
void billdata_test_register(void);
int billdata_test_create_database(const char* path);

static int failures = 0;

#define CHECK(cond)                                                                  \
    do {                                                                             \
        if (!(cond)) {                                                               \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                              \
        }                                                                            \
    } while (0)

/* Calls a method that must succeed and compares its whole answer. */
static void expect_answer(billdata_object* object, const char* method, const char* args,
                          const char* want, int line) {
    char* out = NULL;
    int rc = billdata_call(object, method, args, &out);
    if (rc != 0 || out == NULL || strcmp(out, want) != 0) {
        fprintf(stderr, "line %d: %s: rc %d, error %d %s\n  got  %s\n  want %s\n", line, method, rc,
                (int)billdata_last_error_number(), billdata_last_error_description(),
                out ? out : "(null)", want);
        ++failures;
    }
    CHECK(billdata_last_error_number() == 0);
    billdata_free(out);
}

/* Calls a method that must fail with this number and a description containing `part`. */
static void expect_error(billdata_object* object, const char* method, const char* args, int number,
                         const char* part, int line) {
    char* out = (char*)"untouched";
    int rc = billdata_call(object, method, args, &out);
    if (rc != -1 || out != NULL || billdata_last_error_number() != number ||
        strstr(billdata_last_error_description(), part) == NULL) {
        fprintf(stderr, "line %d: %s: rc %d, error %d \"%s\", want %d containing \"%s\"\n", line,
                method, rc, (int)billdata_last_error_number(), billdata_last_error_description(),
                number, part);
        ++failures;
    }
}

int main(int argc, char** argv) {
    char path[1024], args[2048];
    billdata_object* none;
    billdata_object* service;
    if (argc < 2) {
        fprintf(stderr, "usage: %s <scratch database path>\n", argv[0]);
        return 2;
    }
    /* The version, and the text that starts with it and names the embedded engine. */
    CHECK(strncmp(billdata_version_text(), "billdata ", 9) == 0);
    CHECK(strncmp(billdata_version_text() + 9, billdata_version(), strlen(billdata_version())) ==
          0);
    CHECK(strstr(billdata_version_text(), "driver sqlite: SQLite ") != NULL);

    snprintf(path, sizeof path, "%s", argv[1]);
    remove(path);
    snprintf(args, sizeof args, "%s-wal", path);
    remove(args);
    snprintf(args, sizeof args, "%s-shm", path);
    remove(args);
    billdata_test_register();
    CHECK(billdata_test_create_database(path) == 0);

    none = billdata_create("Orn_BillData_Velt.Nothing");
    CHECK(none == NULL);
    CHECK(billdata_last_error_number() == 429);
    CHECK(strstr(billdata_last_error_description(), "Orn_BillData_Velt.Nothing") != NULL);

    service = billdata_create("orn_billdata_velt.TESTSERVICE");
    CHECK(service != NULL);
    CHECK(billdata_last_error_number() == 0);
    CHECK(strcmp(billdata_last_error_description(), "") == 0);
    if (service == NULL) return 1;

    snprintf(args, sizeof args,
             "{\"NewPromptString\": \"Provider=SQLite;Data Source=%s\", \"New_CurYear\": \"2025\", "
             "\"New_CurPeriod\": 3}",
             path);
    expect_answer(service, "Init", args, "{\"result\": null, \"out\": {}}", __LINE__);
    expect_answer(service, "Period", NULL, "{\"result\": \"2025/3\", \"out\": {}}", __LINE__);

    /* In/out arguments come back; the record set is handed over and set to nothing. */
    expect_answer(service, "Settle",
                  "{\"BillNo\": \"\", \"OldInterID\": 0, \"RsBill\": {\"fields\": [\"FItemID\", "
                  "\"FQty\"], \"rows\": [[1, 2], [2, \"3.5\"]]}, \"Ids\": [5, \"6\"]}",
                  "{\"result\": 5.5, \"out\": {\"BillNo\": \"T-2\", \"OldInterID\": 111, "
                  "\"RsBill\": null, \"Ids\": [6, 5]}}",
                  __LINE__);
    /* What it wrote is in the database, read back through a returned record set. */
    expect_answer(service, "Settings", "{\"strFilter\": \"and FKey like 'Settled%'\"}",
                  "{\"result\": {\"fields\": [\"FKey\", \"FValue\"], \"rows\": [[\"Settled T-2\", "
                  "\"5.5\"]]}, \"out\": {}}",
                  __LINE__);

    /* Wrong calls: nothing is called, the error says what was wrong. */
    expect_error(service, "Describe",
                 "{\"Kind\": \"twelve\", \"ID\": 1, \"Amount\": 1, \"Flag\": true, \"Text\": \"\", "
                 "\"Day\": \"2025-03-09\"}",
                 13, "parameter Kind", __LINE__);
    expect_error(service, "Settle", "{\"BillNo\": \"\"}", 449, "parameter OldInterID", __LINE__);
    expect_error(service, "Frobnicate", "{}", 438, "TestService has no method Frobnicate",
                 __LINE__);
    expect_error(service, "Period", "[1, 2]", 5, "JSON object", __LINE__);
    expect_error(NULL, "Period", "{}", 5, "required", __LINE__);
    /* The class's own refusal keeps its number and its exact text. */
    expect_error(service, "Refuse", "{\"Message\": \"单据已审核，不能删除!\"}", -2147220503,
                 "单据已审核，不能删除!", __LINE__);
    CHECK(strcmp(billdata_last_error_description(), "单据已审核，不能删除!") == 0);

    /* A success clears the error of the thread. */
    expect_answer(service, "NextDay", "{\"Day\": \"2025-02-28\"}",
                  "{\"result\": \"2025-03-01\", \"out\": {}}", __LINE__);

    billdata_release(service);
    billdata_release(NULL);
    billdata_free(NULL);
    if (failures)
        fprintf(stderr, "%d check(s) failed\n", failures);
    else
        printf("c interface: all checks passed\n");
    return failures ? 1 : 0;
}
