#include "properties.h"

#include <string.h>

#include <algorithm>

#include "environment.h"
#include "property_store.h"

int property_get(const char* key, char* value, const char* default_value) {
  std::string found = property_store::get(key);
  if (found.empty() && default_value != nullptr) found = default_value;
  const size_t length = std::min(found.size(), size_t{PROPERTY_VALUE_MAX - 1});
  memcpy(value, found.data(), length);
  value[length] = '\0';
  return static_cast<int>(length);
}

int property_set(const char* key, const char* value) {
  std::string problem;
  if (property_store::set(key, value, problem)) return 0;
  static std::atomic_flag said;
  environment::complain_once(said, "the property %s is not set: %s", key, problem.c_str());
  return -1;
}
