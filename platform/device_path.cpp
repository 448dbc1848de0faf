#include "device_path.h"

#include "environment.h"

std::string velmor_device_path(const char* path) {
  return environment::device_root() + path;
}
