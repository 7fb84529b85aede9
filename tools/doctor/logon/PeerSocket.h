// A connection to the other half of a logon.
#pragma once

#include <chrono>
#include <string>
#include <utility>

namespace morwen::doctor {

// Owns a descriptor.
class Descriptor {
public:
    explicit Descriptor(int i_nDescriptor) noexcept : m_nDescriptor(i_nDescriptor) {}
    Descriptor(Descriptor&& io_other) noexcept : m_nDescriptor(std::exchange(io_other.m_nDescriptor, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    int get() const noexcept { return m_nDescriptor; }

private:
    int m_nDescriptor;
};

// Both take "HOST:PORT" ("[address]:port" of version 6) and throw PeerError.
Descriptor Connect(const std::string& i_peer, std::chrono::steady_clock::time_point i_deadline);
// Waits for one peer; says on standard error where it listens, once it does.
Descriptor AcceptOne(const std::string& i_address, std::chrono::steady_clock::time_point i_deadline);

}  // namespace morwen::doctor
