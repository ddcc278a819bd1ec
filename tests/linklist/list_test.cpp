#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "lenswire/list.h"
#include "support/fake_host.h"

namespace {

using lenswire::test::host;

struct Element {
    uint64_t value;
    bool operator==(const Element&) const = default;
};

// A list and a vector that say the same; checks the links in both directions.
class ListTest : public testing::Test {
  protected:
    ~ListTest() override {
        List_Delete(list);
        EXPECT_EQ(host().live_allocations(), 0);
        EXPECT_THAT(host().complaints(), testing::IsEmpty());
    }

    void expect(const std::vector<uint64_t>& values) const {
        ASSERT_EQ(List_Count(list), values.size());
        EXPECT_EQ(List_IsEmpty(list), values.empty() ? 0 : 1);
        const ListNode* previous = nullptr;
        const ListNode* node = list->pHead;
        for (size_t i = 0; i < values.size(); ++i) {
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(node->pPrev, previous);
            EXPECT_EQ(static_cast<const Element*>(node->pData)->value, values[i]) << i;
            EXPECT_EQ(List_At(list, static_cast<int>(i)), node->pData);
            previous = node;
            node = node->pNext;
        }
        EXPECT_EQ(node, nullptr);
        EXPECT_EQ(list->pTail, previous);
        EXPECT_EQ(List_Frist(list), values.empty() ? nullptr : list->pHead->pData);
        EXPECT_EQ(List_Last(list), values.empty() ? nullptr : list->pTail->pData);
        EXPECT_EQ(List_At(list, static_cast<int>(values.size())), nullptr);
        EXPECT_EQ(List_At(list, -1), nullptr);
    }

    int insert(uint64_t value, int index) {
        Element element{value};
        return List_Insert(list, &element, index);  // the list's copy outlives `element`
    }

    List* list = List_CreateNew(sizeof(Element));
};

// A long random walk over every operation that moves a node, compared with a vector after each step.
TEST_F(ListTest, BehavesLikeAVector) {
    std::vector<uint64_t> values;
    std::mt19937 random(7);
    const auto erase = [&values](size_t at) { values.erase(values.begin() + static_cast<long>(at)); };
    for (uint64_t step = 0; step < 3000; ++step) {
        const int far[] = {INT32_MIN, INT32_MAX};
        const int index =
            random() % 9 == 0 ? far[random() % 2] : static_cast<int>(random() % (values.size() + 4)) - 2;
        const auto at = static_cast<size_t>(index);
        const bool inside = index >= 0 && at < values.size(), empty = values.empty(),
                   front = random() % 2 == 0;
        Element element{step};
        Element taken{~step};
        switch (random() % 9) {
            case 0:
                EXPECT_EQ(insert(step, index), 0);
                // In front when its index is outside.
                values.insert(values.begin() + (inside || at == values.size() ? index : 0), step);
                break;
            case 1:
            case 2:
            case 3:
                EXPECT_EQ((front ? List_PushFront : List_PushBack)(list, &element), 0);
                values.insert(front ? values.begin() : values.end(), step);
                break;
            case 4:
                EXPECT_EQ(List_Replace(list, &element, index), inside ? 0 : -1);
                if (inside) values[at] = step;
                break;
            case 5:
                EXPECT_EQ(List_TakeAt(list, &taken, index), inside ? 0 : -1);
                EXPECT_EQ(taken.value, inside ? values[at] : ~step);
                if (inside) erase(at);
                break;
            case 6:
                List_RemoveAt(list, index);
                if (inside) erase(at);
                break;
            default:
                EXPECT_EQ((front ? List_PopFront : List_PopBack)(list, &taken), empty ? -1 : 0);
                EXPECT_EQ(taken.value, empty ? ~step : front ? values.front() : values.back());
                (front ? List_RemoveFrist : List_RemoveLast)(list);
                for (int i = 0; i < 2 && !values.empty(); ++i) erase(front ? 0 : values.size() - 1);
        }
        ASSERT_NO_FATAL_FAILURE(expect(values)) << "step " << step;
    }
    List_Clear(list);
    expect({});
}

TEST_F(ListTest, RefusesNullArguments) {
    Element element{1};
    insert(1, 0);
    EXPECT_THAT(
        (std::vector{List_Insert(list, nullptr, 0), List_PushBack(list, nullptr),
                     List_Replace(list, nullptr, 0), List_TakeAt(list, nullptr, 0),
                     List_PopBack(list, nullptr), List_IsEmpty(nullptr), List_Insert(nullptr, &element, 0),
                     List_PushFront(nullptr, &element), List_PushBack(nullptr, &element),
                     List_PopFront(nullptr, &element), List_PopBack(nullptr, &element)}),
        testing::Each(-1));
    List_removeNode(list, nullptr);
    List_RemoveLast(nullptr);
    List_removeNode(nullptr, list->pHead);
    List_Clear(nullptr);
    List_Delete(nullptr);
    expect({1});
    EXPECT_EQ(List_Count(nullptr), 0xFFFFFFFFU);
    EXPECT_EQ(List_At(nullptr, 0), nullptr);
    EXPECT_EQ(List_Last(nullptr), nullptr);
}

TEST_F(ListTest, StaysAsItIsWhenTheHostHasNoMemory) {
    insert(1, 0);
    for (int refused = 1; refused <= 2; ++refused) {  // the node, then the element
        host().refuses_allocation(refused);
        EXPECT_EQ(insert(2, 0), -1);
        host().refuses_allocation(refused);
        Element element{3};
        EXPECT_EQ(List_PushBack(list, &element), -1);
        expect({1});
    }
    host().refuses_allocation(1);
    EXPECT_EQ(List_CreateNew(8), nullptr);
    host().refuses_allocation(0);
}

TEST(PointerList, KeepsTheCallersPointersAndCopiesNothing) {
    List* const list = List_CreateNew(0);
    Element elements[] = {{1}, {2}, {3}};
    for (Element& element : elements) List_PushBack(list, &element);
    EXPECT_EQ(List_At(list, 1), &elements[1]);
    Element out{9};
    EXPECT_EQ(List_Replace(list, &out, 1), 0);
    EXPECT_EQ(List_PopFront(list, &out), 0);
    EXPECT_EQ(List_PopBack(list, &out), 0);
    EXPECT_EQ(List_TakeAt(list, &out, 0), 0);
    EXPECT_EQ(List_Count(list), 0U);
    List_Delete(list);
    EXPECT_EQ(out, Element{9});
    EXPECT_THAT(elements, testing::ElementsAre(Element{1}, Element{2}, Element{3}));
}

}  // namespace
