// What this server and its modules agree on, in C: a framework of its own kind, which has never heard of access
// control.

#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// What the framework gives a module.
struct framework {
  const char* configuration;                         ///< the module's own: here the name of the database
  void (*log)(const char* module, const char* line); ///< takes a line without its end; from any thread
};

/// What a module gives the framework: its one exported symbol, of this name.
struct framework_module {
  const char* name;
  int (*start)(const struct framework* framework); ///< 0 when the module can be used
  /// Whether the user may do `method` on `target`: 1 or 0.
  int (*allows)(const char* user, const char* password, const char* method, const char* target);
};

#define FRAMEWORK_MODULE_SYMBOL "framework_module"

#ifdef __cplusplus
}
#endif
