// Timer lists, sorted by expiry; timers of equal expiry keep the order in which they were armed.
//
// Most timers of the system are armed with one of a few lengths, and of one length the one that is
// armed last is due last.  So the place of a new one is looked for from the last one of its length
// on, and at the same time from the tail backwards: arming costs the same however many there are.
#include "dpm_timer.h"

#include "dpm_trace.h"

#include <cstdlib>
#include <ctime>

namespace {

using timer_view = dpm::list_view<dpm_timer_node, &dpm_timer_node::link>;

timespec now() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

bool is_later(const dpm_timer_node &node, std::int32_t sec, std::int32_t nsec) {
    return dpm_timer_compare(node.expiry_sec, node.expiry_nsec, sec, nsec) > 0;
}

dpm_timer_mark &mark_of(dpm_timer_list &list, std::uint32_t length_sec) {
    for (dpm_timer_mark &mark : list.marks)
        if (mark.last != nullptr && mark.length_sec == length_sec)
            return mark;
    dpm_timer_mark &mark = list.marks[list.oldest_mark++ % DPM_TIMER_MARKS];
    mark = {&list.head, length_sec};
    return mark;
}

// Takes a node off the list; the marks on it go back to what stands in front of it.
void take_off(dpm_timer_list &list, dpm_timer_node &node) {
    for (dpm_timer_mark &mark : list.marks)
        if (mark.last == &node.link)
            mark.last = node.link.prev;
    list_del_init(&node.link);
}

// The last place whose timer, and so every one in front of it, is not due later than the node.
// Nothing up to `from` is, or `from` is the head.
list_head *place_of(dpm_timer_list &list, const dpm_timer_node &node, list_head *from) {
    const auto is_behind = [&](list_head *link) {
        return is_later(timer_view::entry_of(link), node.expiry_sec, node.expiry_nsec);
    };
    for (list_head *to = list.head.prev;; from = from->next, to = to->prev) {
        if (to == &list.head || !is_behind(to))
            return to;
        if (is_behind(from->next)) // there is one: `to` at the latest
            return from;
    }
}

void arm(dpm_timer_list &list, dpm_timer_node &node, std::uint32_t length_sec) {
    const timespec time = now();
    take_off(list, node);
    node.expiry_sec =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(time.tv_sec) + length_sec);
    node.expiry_nsec = static_cast<std::int32_t>(time.tv_nsec);
    dpm_timer_mark &mark = mark_of(list, length_sec);
    if (mark.last != &list.head &&
        is_later(timer_view::entry_of(mark.last), node.expiry_sec, node.expiry_nsec))
        mark.last = &list.head; // the clock went back
    list_add(&node.link, place_of(list, node, mark.last));
    mark.last = &node.link;
}

} // namespace

dpm_timer_list *dpm_timer_list_create() {
    auto *list = static_cast<dpm_timer_list *>(std::malloc(sizeof(dpm_timer_list)));
    if (list != nullptr) {
        *list = {};
        INIT_LIST_HEAD(&list->head);
    }
    return list;
}

int dpm_timer_list_delete(dpm_timer_list *list) {
    if (list == nullptr)
        return dpm::null_parameter();
    INIT_LIST_HEAD(&list->head);
    std::free(list);
    return 0;
}

int dpm_timer_node_init(dpm_timer_node *node) {
    if (node == nullptr)
        return dpm::null_parameter();
    *node = {};
    INIT_LIST_HEAD(&node->link);
    return 0;
}

int dpm_timer_start(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec,
                    dpm_timer_callback callback, std::uintptr_t arg1, std::uintptr_t arg2,
                    std::uintptr_t arg3) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    node->callback = callback;
    node->arg1 = arg1;
    node->arg2 = arg2;
    node->arg3 = arg3;
    arm(*list, *node, length_sec);
    return 0;
}

int dpm_timer_restart(dpm_timer_list *list, dpm_timer_node *node, std::uint32_t length_sec) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    arm(*list, *node, length_sec);
    return 0;
}

int dpm_timer_stop(dpm_timer_list *list, dpm_timer_node *node) {
    if (list == nullptr || node == nullptr)
        return dpm::null_parameter();
    take_off(*list, *node);
    return dpm_timer_node_init(node);
}

int dpm_timer_list_check(dpm_timer_list *list) {
    if (list == nullptr)
        return dpm::null_parameter();
    const timer_view timers(list->head);
    if (timers.empty())
        return 0;
    const timespec time = now();
    // The node is off the list before its callback runs, which may arm it again, stop others, or
    // free its record.
    for (dpm_timer_node *node = timers.first(); node != nullptr; node = timers.first()) {
        if (is_later(*node, static_cast<std::int32_t>(time.tv_sec),
                     static_cast<std::int32_t>(time.tv_nsec)))
            break;
        take_off(*list, *node);
        node->expiry_sec = 0;
        node->expiry_nsec = 0;
        if (node->callback != nullptr)
            (void)node->callback(node->arg1, node->arg2, node->arg3);
    }
    return 0;
}

int dpm_timer_compare(std::int32_t a_sec, std::int32_t a_nsec, std::int32_t b_sec,
                      std::int32_t b_nsec) {
    if (a_sec != b_sec)
        return a_sec > b_sec ? 1 : -1;
    return a_nsec == b_nsec ? 0 : a_nsec > b_nsec ? 1 : -1;
}
