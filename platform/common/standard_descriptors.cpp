#include "standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

void fill_standard_descriptors() {
  int fd;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= STDIN_FILENO && fd <= STDERR_FILENO);
  if (fd > STDERR_FILENO) close(fd);
}
