// Operations that several threads may run at once. The thread checker runs this program as well.

#include "Elements.h"

#include <CapturingWriter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

namespace kel {

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200;
constexpr auto kAllRounds = static_cast<std::size_t>(kThreads * kRounds);

constexpr ElementFactoryType kSource = ElementFactoryType::AudioSource;
constexpr ElementFactoryType kAllocator = ElementFactoryType::MemoryBlockAllocator;

// Runs the work on several threads, which start together; each passes its number.
void RunOnThreads(const std::function<void(int)>& work) {
    std::atomic<int> waiting{kThreads};
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&waiting, &work, number] {
            --waiting;
            while (waiting > 0) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(TheRegistryOnManyThreads, AcceptsRegistrationsAndLookUpsAtOnce) {
    const std::size_t before = GetRegistrations().size();
    const auto factory = test::MakeSourceFactory();
    RunOnThreads([&](int number) {
        const std::string name = "thread " + std::to_string(number);
        for (int round = 0; round < kRounds; ++round) {
            const std::string type = std::to_string(round);
            RegisterFactory(name, "", factory, test::MakeEntry(kSource, name, type));
            EXPECT_EQ(GetFactory(kSource, name, type), factory);
            EXPECT_EQ(GetManifest(kSource, name, type)->GetStringValue("type"), type);
            EXPECT_NE(GetFactory(kAllocator, "kel", "Recycler"), nullptr);
            EXPECT_EQ(GetFactory(kSource, "missing", type), nullptr);
            EXPECT_GT(GetRegistrations().size(), before);
        }
    });
    EXPECT_EQ(GetRegistrations().size(), before + kThreads * kRounds);
    RunOnThreads([&](int number) {
        EXPECT_EQ(UnregisterFactories("thread " + std::to_string(number)),
                  static_cast<std::size_t>(kRounds));
    });
    EXPECT_EQ(GetRegistrations().size(), before);
}

TEST(TheRegistryOnManyThreads, KeepsTheOrderOfEachThreadsRegistrations) {
    const auto factory = test::MakeSourceFactory();
    RunOnThreads([&](int number) {
        for (int round = 0; round < kRounds; ++round) {
            RegisterFactory(std::to_string(number), std::to_string(round), factory,
                            test::MakeEntry(kSource, "test.Source", "WAVE"));
        }
    });
    std::vector<int> next(kThreads, 0);
    for (const Registration& registration : GetRegistrations()) {
        if (registration.name != "kelCore") {
            const auto number = static_cast<std::size_t>(std::stoi(registration.name));
            EXPECT_EQ(registration.coreId, std::to_string(next[number]++));
        }
    }
    for (int number = 0; number < kThreads; ++number) {
        UnregisterFactories(std::to_string(number));
    }
}

TEST(TheRegistryOnManyThreads, MakesElementsWhileOthersRegister) {
    const test::LogCapture log;
    const auto factory = test::MakeSourceFactory();
    RunOnThreads([&](int number) {
        const std::string name = "test." + std::to_string(number);
        for (int round = 0; round < kRounds; ++round) {
            if (number % 2 == 0) {
                RegisterFactory(name, "", factory, test::MakeEntry(kSource, name, "WAVE"));
                EXPECT_NE(ImplementElement<kSource>(name, "WAVE", nullptr), nullptr);
                UnregisterFactories(name);
            } else {
                EXPECT_NE(ImplementElement<kAllocator>("kel", "Recycler", nullptr), nullptr);
            }
        }
    });
    EXPECT_EQ(log->Messages(LogLevel::Milestone).size(), kAllRounds);
    EXPECT_TRUE(log->Messages(LogLevel::Error).empty());
}

TEST(RegisteredAllocatorsOnManyThreads, AreFoundWhileOthersAreReplaced) {
    const auto shared = std::make_shared<test::NoMemory>();
    RegisterAllocator("shared", shared);
    RunOnThreads([&](int number) {
        const std::string own = "own " + std::to_string(number);
        for (int round = 0; round < kRounds; ++round) {
            const auto allocator = std::make_shared<test::NoMemory>();
            RegisterAllocator(own, allocator);
            EXPECT_EQ(GetAllocator(own), allocator);
            RegisterAllocator("contested", allocator);
            EXPECT_NE(GetAllocator("contested"), nullptr);
            EXPECT_EQ(GetAllocator("shared"), shared);
        }
    });
}

TEST(LoggingOnManyThreads, LosesNoRecord) {
    const test::LogCapture log;
    RunOnThreads([](int number) {
        const ContextScope scope("thread " + std::to_string(number));
        for (int round = 0; round < kRounds; ++round) {
            KEL_LOG(LogLevel::Info, number << " " << round);
        }
    });
    const std::vector<test::Record> records = log->Records();
    EXPECT_EQ(records.size(), kAllRounds);
    std::set<std::string> messages;
    std::set<std::string> threadIds;
    for (const test::Record& record : records) {
        messages.insert(record.message);
        threadIds.insert(record.threadId);
        EXPECT_EQ(record.context, "thread " + record.message.substr(0, 1));
    }
    EXPECT_EQ(messages.size(), records.size());
    EXPECT_EQ(threadIds.size(), static_cast<std::size_t>(kThreads));
}

/// Counts its records, and fails when it is used after its end.
class MortalWriter final : public ILoggerWriter {
public:
    explicit MortalWriter(std::atomic<int>& count) : m_count(count) {}
    ~MortalWriter() override { m_alive = false; }

    void Write(LogLevel, const char*, const char*, const char*, const char*, const char*,
               const char*, const char*) override {
        EXPECT_TRUE(m_alive);
        ++m_count;
    }

private:
    std::atomic<int>& m_count;
    std::atomic<bool> m_alive{true};
};

TEST(LoggingOnManyThreads, LosesNoRecordWhileTheWriterIsReplaced) {
    std::atomic<int> count{0};
    SetCurrentLoggerWriter(std::make_shared<MortalWriter>(count));
    RunOnThreads([&](int number) {
        for (int round = 0; round < kRounds; ++round) {
            if (number == 0) {
                SetCurrentLoggerWriter(std::make_shared<MortalWriter>(count));
            } else {
                EXPECT_THROW(KEL_FAIL("refused"), KELRuntimeError);
                EXPECT_NE(GetCurrentLoggerWriter(), nullptr);
            }
        }
    });
    SetCurrentLoggerWriter(nullptr);
    EXPECT_EQ(count, (kThreads - 1) * kRounds);
}

/// Blocks that threads pass to each other.
class Exchange {
public:
    std::shared_ptr<IMemoryBlock> Swap(std::size_t place, std::shared_ptr<IMemoryBlock> block) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_blocks[place % m_blocks.size()].swap(block);
        return block;
    }

private:
    std::mutex m_mutex;
    std::vector<std::shared_ptr<IMemoryBlock>> m_blocks{8};
};

void Fill(IMemoryBlock& block, int value) {
    std::memset(block.GetData(), value, block.GetSize());
}

bool IsFilledEvenly(IMemoryBlock& block) {
    const std::uint8_t* const data = block.GetData();
    return std::memcmp(data, data + 1, block.GetSize() - 1) == 0;
}

TEST(TheRecyclerOnManyThreads, GivesABlockToOneHolderAtATimeOnAnyThread) {
    const test::LogCapture log;
    const auto recycler = ImplementElement<kAllocator>("kel", "Recycler", nullptr);
    Exchange exchange;
    RunOnThreads([&](int number) {
        for (int round = 0; round < 10 * kRounds; ++round) {
            auto block = recycler->Allocate(round % 3 == 0 ? 1000U : 4096U);
            Fill(*block, number * 64 + round % 64);
            EXPECT_TRUE(IsFilledEvenly(*block));
            const auto other = exchange.Swap(static_cast<std::size_t>(round), std::move(block));
            if (other != nullptr) {
                EXPECT_TRUE(IsFilledEvenly(*other));
            }
        }
    });
}

TEST(TheRecyclerOnManyThreads, CanBeDestroyedWhileOthersReleaseItsBlocks) {
    const test::LogCapture log;
    auto recycler = ImplementElement<kAllocator>("kel", "Recycler", nullptr);
    std::vector<std::shared_ptr<IMemoryBlock>> blocks;
    for (int i = 0; i < kThreads * kRounds; ++i) {
        blocks.push_back(recycler->Allocate(256));
    }
    RunOnThreads([&](int number) {
        if (number == 0) {
            recycler.reset();
        }
        for (int round = 0; round < kRounds; ++round) {
            blocks[static_cast<std::size_t>(number * kRounds + round)].reset();
        }
    });
    EXPECT_EQ(recycler, nullptr);
}

// So many that a counter that is not atomic repeats a number in every run.
constexpr std::size_t kIdentifiers = 50000;

TEST(DescriptionsOnManyThreads, HaveIdentifiersOfTheirOwn) {
    std::vector<std::vector<std::string>> ids(kThreads);
    RunOnThreads([&](int number) {
        std::vector<std::string>& own = ids[static_cast<std::size_t>(number)];
        own.reserve(kIdentifiers);
        while (own.size() < kIdentifiers) {
            own.push_back(CreateAudioInfo(nullptr, nullptr, {}, {})->GetId());
        }
    });
    std::unordered_set<std::string> all;
    for (const std::vector<std::string>& ofOneThread : ids) {
        all.insert(ofOneThread.begin(), ofOneThread.end());
    }
    EXPECT_EQ(all.size(), kThreads * kIdentifiers);
}

TEST(DescriptionsOnManyThreads, AreReadAtOnce) {
    const auto prototype = CreateParametersCollectionPrototype();
    prototype->AddIntegerParameter("number", 7, "");
    const std::shared_ptr<const IParametersCollectionInstance> instance =
        CreateParametersCollectionInstance(prototype);
    const std::shared_ptr<const IInfoContainer> container = CreateInfoContainer(
        CreateAudioInfo(CreateAudioParameters(ACodecFamily::PCM), nullptr, {}, {}), nullptr);
    RunOnThreads([&](int) {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_EQ(instance->GetIntegerValue("number"), 7);
            EXPECT_NE(container->GetAudioInfos().at(0)->GetAudioParameters(), nullptr);
            EXPECT_EQ(ConvertWideStringToPlatformString(L"\u00E9"), "\xC3\xA9");
        }
    });
}

} // namespace
} // namespace kel
