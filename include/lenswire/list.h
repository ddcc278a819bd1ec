/* A doubly linked list of fixed-size elements, for hosts.
 *
 * A list made with an element size owns a copy of each element; one made with element size 0 keeps the
 * caller's pointers and never looks at or frees what they name. Positions count from 0 at the head. All
 * memory comes from the host's MeMalloc and goes back with MeFree.
 *
 * No locking: one thread at a time, or the caller's own lock. Callable from any thread; blocks for those two
 * services only. */
#ifndef LENSWIRE_LIST_H
#define LENSWIRE_LIST_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ListNode {
    void* pData;            /* the element's ulDataSize bytes, owned by the node; or the caller's pointer */
    struct ListNode* pPrev; /* null at the head */
    struct ListNode* pNext; /* null at the tail */
};

struct List {
    uint32_t ulDataSize; /* bytes of one element, 0 for a list of pointers; fixed at creation */
    uint32_t ulCount;
    struct ListNode* pHead; /* null when empty */
    struct ListNode* pTail; /* null when empty */
};

/* A new, empty list, to be given back with List_Delete. Null without memory. */
LENSWIRE_API struct List* List_CreateNew(uint32_t ulDataSize);
/* Removes every element and frees the list. */
LENSWIRE_API void List_Delete(struct List* list);
/* Removes every element; the list stays. */
LENSWIRE_API void List_Clear(struct List* list);

/* Mind the sense: 1 when the list holds elements, 0 when it holds none, -1 for a null list. */
LENSWIRE_API int List_IsEmpty(const struct List* list);
/* Number of elements; 0xFFFFFFFF for a null list. */
LENSWIRE_API uint32_t List_Count(const struct List* list);

/* Put an element before the one at index, at the front, or at the back: a copy of ulDataSize bytes of
 * data, or the pointer itself. An index that is negative or above the count puts it at the front, an
 * index equal to the count at the back. 0, or -1 with the list unchanged: null argument or no memory. */
LENSWIRE_API int List_Insert(struct List* list, void* data, int index);
LENSWIRE_API int List_PushFront(struct List* list, void* data);
LENSWIRE_API int List_PushBack(struct List* list, void* data);

/* Copies ulDataSize bytes of data over the element at index: nothing in a list of pointers. 0, or -1 for a
 * null argument or when there is no such element. */
LENSWIRE_API int List_Replace(struct List* list, const void* data, int index);

/* The element at index, the first, the last: the list's own copy, good until it is removed, or the caller's
 * pointer. Null when there is none. */
LENSWIRE_API void* List_At(const struct List* list, int index);
LENSWIRE_API void* List_Frist(const struct List* list);
LENSWIRE_API void* List_Last(const struct List* list);

/* Remove the element at index, the first, the last; nothing when there is none. */
LENSWIRE_API void List_RemoveAt(struct List* list, int index);
LENSWIRE_API void List_RemoveFrist(struct List* list);
LENSWIRE_API void List_RemoveLast(struct List* list);

/* Copy ulDataSize bytes of the element at index, the first, the last into out, then remove it. 0, or -1
 * with out and list unchanged: null argument or no such element. */
LENSWIRE_API int List_TakeAt(struct List* list, void* out, int index);
LENSWIRE_API int List_PopFront(struct List* list, void* out);
LENSWIRE_API int List_PopBack(struct List* list, void* out);

/* Unlinks and frees one node of this list; nothing for a null argument. */
LENSWIRE_API void List_removeNode(struct List* list, struct ListNode* node);

#ifdef __cplusplus
}
#endif

#endif
