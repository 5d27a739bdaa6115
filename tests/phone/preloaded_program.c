/* A program that knows nothing of the virtual phone: it writes into the partition and prints what it finds.
 */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int __android_log_print(int priority, const char* tag, const char* format, ...) __attribute__((weak));

int main(int argc, char** argv) {
  char link[64] = {0};
  char bytes[8] = {0};
  const size_t size = argc > 1 ? strlen(argv[1]) : 0; /* not a constant: takes the fortified calls */
  if (__android_log_print != NULL) __android_log_print(4, "program", "size %d", (int)size);
  if (readlink("/dev/block/platform/msm_sdcc.1/by-name/mfg", link, sizeof link - 1) < 0) return 2;
  const int fd = open(link, O_RDWR);
  if (fd < 0) return 3;
  if (pwrite(fd, argv[1], size, 0x100) != (ssize_t)size) return 4;
  if (pread(fd, bytes, size < sizeof bytes ? size : sizeof bytes, 0x100) < 0) return 5;
  close(fd);
  FILE* out = fopen("/data/misc/camera/out", "w");
  if (out == NULL) return 6;
  fputs("written", out);
  fclose(out);
  printf("%s %.8s\n", link, bytes);
  return 0;
}
