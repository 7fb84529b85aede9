// One question for all threads that want to know the same.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "harrow/lifetime/HeldMap.h"
#include "harrow/locks/CS_Wrapper.h"

namespace morwen {

// Answers that are held by name, never changed once they are there. Any method on any thread.
template <class T, size_t kMost>
class AskedOnce {
public:
    using Answer = std::shared_ptr<const T>;

    // What is held under the name, if it is still good; else what i_ask gives, which is held from then on. It is called
    // under no lock, with what was held before or null. Whoever wants the same meanwhile waits for that answer; where
    // it is no good, the asking throws or takes longer than any request, each asks for itself. i_isGood must be quick.
    template <class IsGood, class Ask>
    Answer Get(const std::string& i_name, IsGood i_isGood, Ask i_ask) {
        std::shared_ptr<Question> pQuestion;
        Answer pEarlier;
        bool bMine = false;
        {
            const Harrowlib201::CS_Locker locker(m_section);
            if (const Answer* const pHeld = m_answers.Find(i_name); pHeld != nullptr) {
                if (i_isGood(**pHeld)) {
                    return *pHeld;
                }
                pEarlier = *pHeld;
            }
            auto& pAsked = m_questions[i_name];
            bMine = pAsked == nullptr;
            if (bMine) {
                pAsked = std::make_shared<Question>();
            }
            pQuestion = pAsked;
        }
        if (!bMine) {
            const Answer pAnswer = pQuestion->Await();
            return pAnswer != nullptr && i_isGood(*pAnswer) ? pAnswer : i_ask(pAnswer != nullptr ? pAnswer : pEarlier);
        }
        const Asking asking{*this, i_name, *pQuestion};
        Answer pAnswer = i_ask(pEarlier);
        pQuestion->m_pAnswer = pAnswer;
        const Harrowlib201::CS_Locker locker(m_section);
        m_answers.Hold(i_name, pAnswer);
        return pAnswer;
    }

    void Forget(const std::string& i_name) {
        const Harrowlib201::CS_Locker locker(m_section);
        m_answers.Forget(i_name);
    }
    void Clear() {
        const Harrowlib201::CS_Locker locker(m_section);
        m_answers.Clear();
    }

private:
    struct Question {
        std::mutex m_mutex;
        std::condition_variable m_changed;
        bool m_bOver = false;
        Answer m_pAnswer;  // written by the asking thread alone, read when it is over

        Answer Await() {
            constexpr std::chrono::seconds kLongest(60);
            std::unique_lock lock(m_mutex);
            return m_changed.wait_for(lock, kLongest, [this] { return m_bOver; }) ? m_pAnswer : nullptr;
        }
    };

    // Ends the question, with an answer or without.
    struct Asking {
        AskedOnce& m_owner;
        const std::string& m_name;
        Question& m_question;

        ~Asking() {
            {
                const Harrowlib201::CS_Locker locker(m_owner.m_section);
                m_owner.m_questions.erase(m_name);
            }
            const std::lock_guard lock(m_question.m_mutex);
            m_question.m_bOver = true;
            m_question.m_changed.notify_all();
        }
    };

    Harrowlib201::CS_Wrapper m_section;
    Harrowlib201::HeldMap<std::string, Answer, kMost> m_answers S_GUARDED_BY(m_section);
    std::map<std::string, std::shared_ptr<Question>> m_questions S_GUARDED_BY(m_section);
};

}  // namespace morwen
