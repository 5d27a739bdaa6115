// What a file of the folder does differently because it stands for a block device: it has a fixed size.
#ifndef PHONE_DEVICES_BLOCK_DEVICE_H
#define PHONE_DEVICES_BLOCK_DEVICE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

namespace phone {

/// Results and errno as of the calls with these names. `offset` null: at the file position, which moves.
ssize_t block_device_write(int fd, const void* buffer, size_t size, const off_t* offset);
int block_device_ioctl(int fd, unsigned long request, void* argument);

/// lseek on anything of a fixed size: the position may be the end, and nothing beyond it.
off_t seek_within(int fd, off_t offset, int whence, off_t size);

off_t device_size(int fd);

/// Turns the backing file's status into the device node's.
void show_as_device(struct stat& status, mode_t type, unsigned major, unsigned minor);

}  // namespace phone

#endif
