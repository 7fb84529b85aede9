// One side of logons, told what to do on its input: which library speaks is decided by what this is compiled with.
#include <cstdlib>
#include <iostream>
#include <optional>

#include MORWEN_PEER_HEADER

// Each line is "init SERVICE FLAGS LENGTH", "step SERVICE FLAGS LENGTH", "accept - - LENGTH", all three with a token of
// that length behind the line, or "set NAME VALUE 0" for the environment. The answer has the length of a token, what
// has come of the logon, and the token behind the line.
int main() try {
    std::optional<morwen::MORWEN_PEER> peer;
    std::string verb;
    std::string first;
    std::string second;
    std::streamsize nLength = 0;
    while (std::cin >> verb >> first >> second >> nLength && std::cin.get() == '\n') {
        std::string input(static_cast<size_t>(nLength), '\0');
        std::cin.read(input.data(), nLength);
        const morwen::Bytes token(input.begin(), input.end());
        morwen::Bytes answer;
        if (verb != "step") {
            peer.emplace();
        }
        if (verb == "set") {
            setenv(first.c_str(), second.c_str(), 1);
        } else {
            answer = verb == "accept" ? peer->Accept(token)
                                      : peer->Initiate(first, static_cast<uint32_t>(std::stoul(second)), token);
        }
        std::cout << answer.size() << " " << peer->Outcome() << "\n"
                  << std::string(answer.begin(), answer.end()) << std::flush;
    }
    return 0;
} catch (const std::exception& exception) {
    std::cerr << exception.what() << "\n";
    return 1;
}
