#pragma once

#include <cstddef>

// Anonymous shared memory. This header stands before the packaged one of the same name, whose
// library keeps regions in temporary files on disk; here a region is a memory file descriptor.

extern "C" {

// Creates a region of `size` bytes, all zero. The name is for diagnostics and may be cut. Returns
// a close-on-exec descriptor that the caller closes, or -1 with errno set.
int ashmem_create_region(const char* name, size_t size);

// Limits what whoever holds the descriptor may map from now on: PROT_READ alone seals the region
// against new writable mappings (existing ones stay), PROT_READ | PROT_WRITE changes nothing. A
// protection once taken away cannot be given back. Returns 0, or -1 with errno set.
int ashmem_set_prot_region(int fd, int prot);

// The region's size in bytes, or -1 with errno set.
int ashmem_get_size_region(int fd);
}
