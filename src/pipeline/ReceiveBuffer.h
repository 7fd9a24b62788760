#pragma once

#include <string>

// First-in, first-out store of received bytes. Has no lock and no limit: its owner keeps both.
class ReceiveBuffer
{
public:
    // Appends len bytes behind the stored ones; returns len.
    int write(const unsigned char* data, unsigned int len);
    int size() const;
    // Moves the oldest min(size, n) bytes to out; returns how many.
    int read(unsigned char* out, unsigned int n);
    // Copies the oldest min(size, n) bytes to out and keeps them; returns how many.
    int peek(unsigned char* out, unsigned int n) const;
    // Drops everything; returns 0.
    int clear();

private:
    std::basic_string<unsigned char> m_bytes;
};
