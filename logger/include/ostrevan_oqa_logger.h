/*
 * The logger library's C interface, as the demosaic library (or any other
 * module) calls it after opening libostrevan_oqa_logger.so by name.
 *
 * Priorities are syslog severities: 0 emerg, 1 alert, 2 crit, 3 err,
 * 4 warning, 5 notice, 6 info, 7 debug.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef OSTREVAN_OQA_LOGGER_H
#define OSTREVAN_OQA_LOGGER_H

#if defined(__GNUC__)
#define OQA_LOGGER_EXPORT __attribute__((visibility("default")))
#else
#define OQA_LOGGER_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Opens (or, when already open, shares) the log named by module_name and
 * instance_name, configured by the file found for config_file_name. Each
 * successful call must be balanced by one oqa_free_log. Null strings count as
 * empty. Returns null only when the log cannot be created at all. */
OQA_LOGGER_EXPORT void* oqa_get_log(const char* module_name, const char* instance_name,
                                    const char* config_file_name);

/* Writes one record. Safe to call from any number of threads at once.
 * Returns 0 when the record was accepted, which includes a record dropped
 * because its priority is above the configured level; non-zero for a null
 * log or a priority outside 0..7. */
OQA_LOGGER_EXPORT int oqa_log(void* log, int priority, const char* file, int line,
                              const char* function, const char* message);

/* Balances one oqa_get_log; the last one flushes and closes the log. Naming
 * a log that is not open does nothing. */
OQA_LOGGER_EXPORT void oqa_free_log(const char* module_name, const char* instance_name);

#ifdef __cplusplus
}
#endif

#endif /* OSTREVAN_OQA_LOGGER_H */
