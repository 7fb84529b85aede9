// A password, from the terminal or from a descriptor.
#include "tools/doctor/SecretLine.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <string_view>

#include "harrow/lifetime/SecureWipe.h"
#include "harrow/text/SWCharStringConv.h"

namespace morwen::doctor {

namespace {

// The terminal without echo, as long as this lives. An interrupt from the keyboard ends the reading and nothing else,
// so that the echo comes back.
class Terminal {
public:
    Terminal() : m_nDescriptor(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (m_nDescriptor < 0 || tcgetattr(m_nDescriptor, &m_before) != 0) {
            throw std::runtime_error("there is no terminal to ask for the password on: --password-fd");
        }
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        struct sigaction wake {};
        wake.sa_handler = [](int) {};
        sigaction(SIGINT, &wake, &m_interrupt);
        tcsetattr(m_nDescriptor, TCSAFLUSH, &silent);
        Say("Password: ");
    }
    ~Terminal() {
        tcsetattr(m_nDescriptor, TCSAFLUSH, &m_before);
        sigaction(SIGINT, &m_interrupt, nullptr);
        Say("\n");
        close(m_nDescriptor);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int Descriptor() const noexcept { return m_nDescriptor; }

private:
    void Say(std::string_view i_text) const { static_cast<void>(!write(m_nDescriptor, i_text.data(), i_text.size())); }

    int m_nDescriptor;
    termios m_before{};
    struct sigaction m_interrupt {};
};

}  // namespace

Harrowlib201::SWCharString ReadSecretLine(int i_nDescriptor) {
    if (i_nDescriptor < 0) {
        const Terminal terminal;
        return ReadSecretLine(terminal.Descriptor());
    }
    std::array<char, 1024> aBytes{};
    size_t nLength = 0;
    while (nLength < aBytes.size() && read(i_nDescriptor, &aBytes.at(nLength), 1) == 1 && aBytes.at(nLength) != '\n') {
        ++nLength;
    }
    Harrowlib201::SWCharString ssText = Harrowlib201::SWCharStringConv::FromUtf8({aBytes.data(), nLength});
    Harrowlib201::SecureWipe(aBytes.data(), aBytes.size());
    if (nLength == 0 || nLength == aBytes.size()) {
        throw std::runtime_error("there is no password to read, or one that is too long");
    }
    return ssText;
}

}  // namespace morwen::doctor
