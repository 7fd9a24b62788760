#pragma once

// Receives the bytes of one chunk. They belong to the caller and live only for the call; one extra
// zero byte, not counted in len, follows them. The result is always 0 and nobody reads it.
typedef int (*DataCallback)(const char* data, int len, void* context);
