// Which thread acts through which token.
#pragma once

namespace morwen {

class StaticToken;

// A thread acts through one token at most: the next one replaces it, wherever the thread reverts it is itself, and a
// thread that has ended acts no more. The tokens' counts say how many threads act through each. On any thread; the
// calling thread is meant where a call names none.
class ActingThreads {
public:
    // What is needed for Begin, which then cannot fail. Throws std::bad_alloc.
    class Place {
    public:
        Place();
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

        // The thread acts through the token from now on, and no more through any other.
        void Begin(StaticToken& i_token) const noexcept;
        // It has become a user that it cannot act as: through no token any more, and itself again, or not even that.
        void Refuse(bool i_bItself) const noexcept;
    };
    // The thread is itself again.
    static void End() noexcept;
    // Makes the thread itself again if it acts through any token, be that gone or not. False when it could not.
    static bool Revert() noexcept;

    // The token ends. Threads that act through it stay its user.
    static void Forget(StaticToken& i_token) noexcept;
    // Counts the threads out that have ended.
    static void ForgetEnded() noexcept;

private:
    static void CountOut(StaticToken* i_pToken) noexcept;  // under the lock; null: nothing
};

}  // namespace morwen
