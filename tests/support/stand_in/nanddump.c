/* nanddump for tests: good blocks from an offset on, as the program of that name dumps them. */
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

int main(int argc, char** argv) {
  long long at = 0, length = -1;
  for (int i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], "-s") == 0) at = atoll(argv[i + 1]);
    if (strcmp(argv[i], "-l") == 0) length = atoll(argv[i + 1]);
  }
  struct mtd_info_user chip;
  const int fd = open(argv[argc - 1], O_RDONLY);
  if (fd < 0 || ioctl(fd, MEMGETINFO, &chip) != 0) return 1;
  char* block = malloc(chip.erasesize);
  struct mtd_ecc_stats before, after;
  for (; length != 0 && at < chip.size; at += chip.erasesize) {
    loff_t offset = at;
    if (ioctl(fd, MEMGETBADBLOCK, &offset) != 0) continue;
    if (ioctl(fd, ECCGETSTATS, &before) != 0) return 1;
    if (pread(fd, block, chip.erasesize, at) != (ssize_t)chip.erasesize) return 1;
    if (ioctl(fd, ECCGETSTATS, &after) != 0) return 1;
    if (after.failed != before.failed)
      fprintf(stderr, "ECC: 1 uncorrectable bitflip(s) at offset 0x%08llx\n", at);
    fwrite(block, 1, chip.erasesize, stdout);
    if (length > 0) length -= chip.erasesize;
  }
  free(block);
  return fflush(stdout) == 0 ? 0 : 1;
}
