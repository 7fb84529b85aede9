// Error records: how they are made, kept for their thread, and given back.
#include "errors/ErrorRecord.h"
#include "fakes/PlatformTest.h"
#include "harrow/threads/JTC.h"

namespace morwen {
namespace {

using namespace Harrowlib201;
using ErrorsTest = PlatformTest;

// The record as text, freed.
std::string Take(SSOError* i_pError) {
    std::string text = std::to_string(i_pError->errCode) + "/" + std::to_string(i_pError->messageId);
    for (const SSOSubstitution* p = i_pError->substitutions; p != nullptr; p = p->next) {
        text += "/" + Utf8(p->data);
        EXPECT_TRUE(p->next == nullptr || p->next == p + 1);
    }
    text += i_pError->message != nullptr ? " " + Utf8(i_pError->message) : "";
    FreeErrorRecord(i_pError);
    return text;
}

TEST_F(ErrorsTest, RecordsSayWhatTheExceptionSays) {
    EXPECT_EQ(Take(MakeErrorRecord(SSOException(103))), "103/42254");
    EXPECT_EQ(Take(MakeErrorRecord(SSOException(100, 1, {u"a", u"", u"c"}))), "100/1/a/null/c");
    for (int i = 0; i < 2; ++i) {  // the record of memory running out outlives its release
        EXPECT_EQ(Take(MakeErrorRecord(SSOException::OutOfMemory())), "106/42256 Morwen failed to allocate memory.\n");
    }
    EXPECT_EQ(SSOException::OutOfMemory().GetMessageId(), 42502U);
}

TEST_F(ErrorsTest, NothingStartsWithoutASlot) {
    std::vector<JTCThreadKey> keys;
    EXPECT_THROW(
        while (keys.size() < 1000) { keys.push_back(JTCTSS::allocate()); }, JTCSystemCallException);
    EXPECT_EQ(SSOInitPackage(), 100U);
    EXPECT_TRUE(m_trace.Said({"ErrorManager::ErrorManager() -- Error allocating thread local storage.",
                              "ErrorManager::ErrorManager() -- all thread-local slots are taken", "m_pErrorManager",
                              "SSOImpl::Initialize() -- Failed to initialize components.",
                              "InitializePlugin() -- SSOImpl::Initialize() failed!"}));
    std::for_each(keys.begin(), keys.end(), JTCTSS::release);
    EXPECT_EQ(SSOInitPackage(), 0U);
    EXPECT_EQ(SSOTermPackage(), 0U);
}

}  // namespace
}  // namespace morwen
