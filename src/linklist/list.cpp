// A list of copies. Each element is the list's own; what a host hands in or takes out is its own again. A
// list is as safe as its caller: there is no lock.
#include "lenswire/list.h"

#include <climits>
#include <cstring>

#include "lenswire/host_services.h"

#define LIST_MALLOC(size) MeMalloc(size, "src/linklist", __LINE__)
#define LIST_FREE(pointer) MeFree(pointer, "src/linklist", __LINE__)

namespace {

ListNode* List_NodeAt(const List* list, int index) {
    if (list == nullptr || index < 0) return nullptr;
    ListNode* node = list->pHead;
    for (int i = 0; node != nullptr && i < index; ++i) node = node->pNext;
    return node;
}

// A copy of the element for a node to own; null without memory, or when it is larger than the host's
// allocator can be asked for.
void* copy_element(const void* data, uint32_t size) {
    if (size > INT_MAX) return nullptr;
    void* const copy = LIST_MALLOC(static_cast<int>(size));
    if (copy != nullptr) std::memcpy(copy, data, size);
    return copy;
}

ListNode* List_NewNode(const List* list, void* data) {
    if (list == nullptr || data == nullptr) return nullptr;
    auto* const node = static_cast<ListNode*>(LIST_MALLOC(sizeof(ListNode)));
    if (node == nullptr) return nullptr;
    *node = {};
    node->pData = list->ulDataSize == 0 ? data : copy_element(data, list->ulDataSize);
    if (node->pData == nullptr) {
        LIST_FREE(node);
        return nullptr;
    }
    return node;
}

void List_FreeNode(const List* list, ListNode* node) {
    if (list == nullptr || node == nullptr) return;
    if (list->ulDataSize > 0 && node->pData != nullptr) {
        LIST_FREE(node->pData);
        node->pData = nullptr;
    }
    LIST_FREE(node);
}

// A new node after `previous`, at the front when that is null.
int insert_after(List* list, ListNode* previous, void* data) {
    ListNode* const node = List_NewNode(list, data);
    if (node == nullptr) return -1;
    node->pPrev = previous;
    node->pNext = previous != nullptr ? previous->pNext : list->pHead;
    (node->pNext != nullptr ? node->pNext->pPrev : list->pTail) = node;
    (previous != nullptr ? previous->pNext : list->pHead) = node;
    ++list->ulCount;
    return 0;
}

int List_TakeNode(List* list, ListNode* node, void* out) {
    if (list == nullptr || node == nullptr || out == nullptr) return -1;
    std::memcpy(out, node->pData, list->ulDataSize);
    List_removeNode(list, node);
    return 0;
}

}  // namespace

List* List_CreateNew(uint32_t ulDataSize) {
    auto* const list = static_cast<List*>(LIST_MALLOC(sizeof(List)));
    if (list == nullptr) return nullptr;
    *list = {};
    list->ulDataSize = ulDataSize;
    return list;
}

void List_Delete(List* list) {
    if (list == nullptr) return;
    List_Clear(list);
    LIST_FREE(list);
}

void List_Clear(List* list) {
    if (list == nullptr) return;
    while (list->pHead != nullptr) List_removeNode(list, list->pHead);
}

int List_IsEmpty(const List* list) {
    if (list == nullptr) return -1;
    return list->pHead != nullptr;
}

uint32_t List_Count(const List* list) {
    return list != nullptr ? list->ulCount : UINT32_MAX;
}

int List_Insert(List* list, void* data, int index) {
    if (list == nullptr || data == nullptr) return -1;
    return insert_after(list, index > 0 ? List_NodeAt(list, index - 1) : nullptr, data);
}

int List_PushFront(List* list, void* data) {
    return List_Insert(list, data, 0);
}

int List_PushBack(List* list, void* data) {
    if (list == nullptr || data == nullptr) return -1;
    return insert_after(list, list->pTail, data);
}

int List_Replace(List* list, const void* data, int index) {
    ListNode* const node = List_NodeAt(list, index);
    if (node == nullptr || data == nullptr) return -1;
    std::memmove(node->pData, data, list->ulDataSize);
    return 0;
}

void* List_At(const List* list, int index) {
    const ListNode* const node = List_NodeAt(list, index);
    return node != nullptr ? node->pData : nullptr;
}

void* List_Frist(const List* list) {
    return List_At(list, 0);
}

void* List_Last(const List* list) {
    return list != nullptr && list->pTail != nullptr ? list->pTail->pData : nullptr;
}

void List_RemoveAt(List* list, int index) {
    List_removeNode(list, List_NodeAt(list, index));
}

void List_RemoveFrist(List* list) {
    List_RemoveAt(list, 0);
}

void List_RemoveLast(List* list) {
    if (list != nullptr) List_removeNode(list, list->pTail);
}

int List_TakeAt(List* list, void* out, int index) {
    return List_TakeNode(list, List_NodeAt(list, index), out);
}

int List_PopFront(List* list, void* out) {
    return List_TakeAt(list, out, 0);
}

int List_PopBack(List* list, void* out) {
    return list != nullptr ? List_TakeNode(list, list->pTail, out) : -1;
}

void List_removeNode(List* list, ListNode* node) {
    if (list == nullptr || node == nullptr) return;
    (node->pPrev != nullptr ? node->pPrev->pNext : list->pHead) = node->pNext;
    (node->pNext != nullptr ? node->pNext->pPrev : list->pTail) = node->pPrev;
    List_FreeNode(list, node);
    --list->ulCount;
}
