// The support library: texts, numbers, counts, times, thread slots and the log hub.
#include <atomic>
#include <future>
#include <limits>
#include <thread>

#include "fakes/PlatformTest.h"
#include "harrow/locks/CRWLock.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/log/STrace.h"
#include "harrow/threads/JTC.h"
#include "harrow/threads/JTCThread.h"
#include "harrow/time/SDateTime.h"

namespace morwen {
namespace {

using namespace Harrowlib201;
using Conv = SWCharStringConv;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

template <class Number>
void CheckNumbers(const std::vector<std::string>& i_good, std::vector<std::string> i_bad) {
    for (const std::string& text : i_good) {
        Number nValue = 77;
        EXPECT_TRUE(Conv::FromString(Conv::FromUtf8(text), nValue)) << text;
        EXPECT_EQ(Utf8(Conv::ToString(nValue)), text);
    }
    i_bad.insert(i_bad.end(),
                 {"", "-", "+1", " 1", "1 ", "1a", "0x1", "1.0", "\u0661", "\u0131", "99999999999999999999"});
    for (const std::string& text : i_bad) {  // U+0131 would be '1' if it were cut to eight bits
        Number nValue = 77;
        EXPECT_FALSE(Conv::FromString(Conv::FromUtf8(text), nValue)) << text;
        EXPECT_EQ(nValue, Number{77});
    }
}

TEST(Harrow, NumbersAtTheBordersAndJunk) {
    CheckNumbers<uint64_t>({"0", "18446744073709551615"}, {"-1", "18446744073709551616"});
    CheckNumbers<int64_t>({"0", "-1", "9223372036854775807", "-9223372036854775808"},
                          {"9223372036854775808", "-9223372036854775809"});
    EXPECT_EQ(Utf8(Conv::ToString(uint64_t{255}, 16)), "ff");
}

TEST(Harrow, Utf8ThereAndBackAndMalformed) {
    const std::string replaced = "\xEF\xBF\xBD";
    for (const std::u16string text : {u"", u"\u007F\u0080\u07FF\u0800\uFFFF", u"\xD800\xDC00\xDBFF\xDFFF"}) {
        EXPECT_EQ(Conv::FromUtf8(Conv::ToUtf8(text)).view(), text);
    }
    EXPECT_EQ(Conv::ToUtf8(u"\u00E9\u20AC\U0001F600"), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    // Lone surrogates: before an ordinary character, the wrong way round.
    EXPECT_EQ(Conv::ToUtf8(u"\xD83Dz\xDE00\xD83D"), replaced + "z" + replaced + replaced);
    for (const std::string bytes :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xE0\x9F\xBF", "\xE2\x82", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
          "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {  // each byte is replaced by itself
        EXPECT_EQ(Conv::FromUtf8("<" + bytes + ">").view(), u"<" + std::u16string(bytes.size(), u'\xFFFD') + u">");
    }
}

class Counted : public CRefCount {
public:
    Counted(uint32_t i_nCount, bool& o_bEnded) : CRefCount(i_nCount), m_bEnded(o_bEnded) {}
    ~Counted() override { m_bEnded = true; }

private:
    bool& m_bEnded;
};

TEST(Harrow, CountsEndAtZeroSaturateAndRefuseUnderflow) {
    bool bEnded = false;
    auto* pCounted = new Counted(1, bEnded);
    pCounted->addRef();
    pCounted->release();
    EXPECT_FALSE(bEnded);
    pCounted->release();
    EXPECT_TRUE(bEnded);
    bEnded = false;
    Counted full(std::numeric_limits<uint32_t>::max() - 1, bEnded);
    for (int i = 0; i < 8; ++i) {
        i < 3 ? full.addRef() : full.release();
    }
    EXPECT_FALSE(bEnded);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Counted none(0, bEnded);
    EXPECT_DEATH(none.release(), "");
}

TEST(Harrow, TimesSaturateAndLeaveZonesBehind) {
    EXPECT_EQ((SDateTime(5) + STimeSpan(kMax)).GetUtcMilliseconds(), kMax);
    EXPECT_EQ((SDateTime(-5) + STimeSpan(kMin)).GetUtcMilliseconds(), kMin);
    const int64_t aDifferences[][3] = {{5, 7, -2},      {kMax, -1, kMax}, {kMin, 1, kMin},
                                       {0, kMin, kMax}, {-1, kMin, kMax}, {kMin + 3, kMin, 3}};
    for (const auto& test : aDifferences) {
        EXPECT_EQ((SDateTime(test[0]) - SDateTime(test[1])).GetTotalMilliseconds(), test[2]);
    }
    const auto utc = [](int i_nMonth, int i_nDay, int i_nHour, int i_nMinute) {
        return SDateTime(2026, i_nMonth, i_nDay, i_nHour, i_nMinute, 0, 0, STimeZone::TZ_UTC);
    };
    EXPECT_EQ(SDateTime(1970, 1, 1, 0, 0, 1, 5, STimeZone::TZ_UTC).GetUtcMilliseconds(), 1005);
    EXPECT_EQ(utc(2, 28, 24, 0), utc(3, 1, 0, 0));
}

TEST(Harrow, SlotsBelongToThreadsAndKeys) {
    int nFirst = 0;
    int nSecond = 0;
    const JTCThreadKey old = JTCTSS::allocate();
    JTCTSS::set(old, &nFirst);
    std::thread([&] {
        EXPECT_EQ(JTCTSS::get(old), nullptr);
        JTCTSS::set(old, &nSecond);
    }).join();
    EXPECT_EQ(JTCTSS::get(old), &nFirst);
    JTCTSS::release(old);
    EXPECT_THROW(JTCTSS::get(old), JTCSystemCallException);
    const JTCThreadKey fresh = JTCTSS::allocate();
    ASSERT_EQ(fresh.m_nSlot, old.m_nSlot);  // else the next line would show nothing
    EXPECT_EQ(JTCTSS::get(fresh), nullptr);
    JTCTSS::release(old);  // names nothing any more
    JTCTSS::set(fresh, &nSecond);
    EXPECT_THROW(JTCTSS::set(old, &nFirst), JTCSystemCallException);
    EXPECT_EQ(JTCTSS::get(fresh), &nSecond);
    JTCTSS::release(fresh);
}

class InterruptedThread : public JTCThread {
public:
    std::string m_seen;

protected:
    void run() override {
        interrupt();
        for (int i = 0; i < 2; ++i) {  // it waits for itself, which the time ends
            try {
                join(1);
                m_seen += "waited ";
            } catch (const JTCInterruptedException&) {
                m_seen += "interrupted ";
            }
        }
    }
};

TEST(Harrow, AnInterruptedThreadsNextWaitIsCutShort) {
    const JTCAdoptCurrentThread known;
    const auto pThread = MakeCounted<InterruptedThread>();
    pThread->start();
    pThread->join(10000);
    EXPECT_FALSE(pThread->isAlive());
    EXPECT_EQ(pThread->m_seen, "interrupted waited ");
    EXPECT_THROW(pThread->start(), JTCSystemCallException);
}

TEST(Harrow, AWriterWaitsForNoReaderThatComesLater) {
    CRWLock lock;
    std::atomic<bool> bStop = false;
    const auto sink = [](uint32_t, const char*, int, const char*, void*) { std::this_thread::yield(); };
    std::vector<std::thread> readers;
    readers.reserve(8);
    for (int i = 0; i < 8; ++i) {
        readers.emplace_back([&] {
            while (!bStop) {
                S_TRACE("so that a sink is always running");
                const CSmartReadLocker locker(lock);
                std::this_thread::yield();  // so that another one is always inside
            }
        });
    }
    auto written = std::async(std::launch::async, [&] {
        for (int i = 0; i < 100; ++i) {
            const CSmartWriteLocker locker(lock);
        }
        for (int i = 0; i < 100; ++i) {
            HarrowLogSetSink(i == 99 ? nullptr : +sink, nullptr, HARROW_LOG_TRACE);
        }
    });
    EXPECT_EQ(written.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    bStop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST(Harrow, NoSinkRunsUnderALock) {
    static CRWLock s_lock;
    static CS_Wrapper s_section;
    static std::string s_seen;
    s_seen.clear();
    const auto sink = [](uint32_t, const char*, int, const char* i_pszMessage, void*) {
        const CS_Locker section(s_section);  // would wait forever
        const CSmartWriteLocker locker(s_lock);
        S_TRACE("from inside");
        s_seen += i_pszMessage;
    };
    HarrowLogSetSink(sink, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    {
        const CS_Locker section(s_section);
        {
            const CSmartReadLocker locker(s_lock);
            S_TRACE("%1, ", 1);
            S_FAIL("2, ");
        }
        S_TRACE("3, ");
        EXPECT_EQ(s_seen, "");
    }
    S_TRACE("4");
    HarrowLogSetSink(nullptr, nullptr, 0);
    EXPECT_EQ(s_seen, "1, 2, 3, 4");
}

TEST(Harrow, LogKindsSubstitutionsAndReentrance) {
    static std::string s_seen;
    s_seen.clear();
    const auto sink = [](uint32_t i_nKind, const char*, int, const char* i_pszMessage, void*) {
        s_seen += std::to_string(i_nKind) + i_pszMessage + "\n";
        S_REASON("from inside");
        S_FAIL("from inside");
    };
    const auto speak = [](bool i_bHolds) {
        S_TRACE("%1 then %3%2, %4 and 100%", "one", int64_t{-2}, SWCharString(u"\u20AC"));
        S_ASSERT(i_bHolds);
        S_ASSERT_MSG(i_bHolds, "why");
        S_ASSERT_TEXT(i_bHolds, "text");
    };
    for (const uint32_t nKinds : {0U, 1U, 2U}) {
        HarrowLogSetSink(sink, nullptr, nKinds);
        speak(nKinds == 1);
        speak(true);
    }
    HarrowLogSetSink(nullptr, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    speak(false);
    const std::string trace = "1one then \xE2\x82\xAC-2, %4 and 100%\n";
    EXPECT_EQ(s_seen, trace + trace + "2i_bHolds\n2why (i_bHolds)\n2text\n");
    S_REASON("X() -- no key for %1", "a\x1B[m\xC2\x9B");  // nobody listens
    EXPECT_STREQ(HarrowLogReason(), "no key for a?[m??");
    S_REASON(std::string(1022, 'x').append("\xE2\x82\xAC").c_str());
    EXPECT_EQ(HarrowLogReason(), std::string(1022, 'x'));
    std::thread([] { EXPECT_STREQ(HarrowLogReason(), ""); }).join();
}

}  // namespace
}  // namespace morwen
