/*
 * Reading a reply: parsed once into a view, then read with typed,
 * range-checked readers. A number that does not fit its destination is a
 * decode failure, never a saturated or wrapped value.
 */
#ifndef KX_APPLICATION_KX_REPLY_H
#define KX_APPLICATION_KX_REPLY_H

#include <cstddef>

#include <cjson/cJSON.h>

namespace kx {

/* What a reader found: the value (stored), no such member, or a member of
 * the wrong type or out of range (nothing stored). */
enum class Read { Ok, Missing, Invalid };

/* One parsed reply. The decoding container is the reply's "arm_state"
 * member, else its "all_state" member, else the reply itself. */
class ReplyView {
public:
    /* Parses `text`, unless it is the reply this thread has just taken, whose
     * tree is then borrowed: a reply is parsed once, when it is framed. */
    explicit ReplyView(const char* text);
    ~ReplyView() {
        if (owned_) cJSON_Delete(root_);
    }
    ReplyView(const ReplyView&) = delete;
    ReplyView& operator=(const ReplyView&) = delete;

    bool parsed() const { return root_ != nullptr; }
    const cJSON* root() const { return root_; }
    const cJSON* container() const;

private:
    cJSON* root_;
    bool owned_ = true;
};

/* ---- parsing once ----
 * The frame a thread stores stays parsed on that thread; when the same
 * thread then takes that very frame as its reply, whole, the tree moves to
 * the reply it copied out, and ReplyView borrows it for exactly those bytes
 * at that address. A new round trip on the thread forgets it. */
/* store_frame: keeps `root` (owned) as the frame stored at (fifo, index, stamp). */
void keep_stored_tree(const void* fifo, int index, unsigned long long stamp, cJSON* root);
/* take_locked: the frame at (fifo, index, stamp) was copied whole to `out`. */
void taken_whole(const void* fifo, int index, unsigned long long stamp, const char* out, size_t len);
/* The start of a round trip. */
void forget_taken_reply();

/* Readers of one member of `obj` (null obj: Missing). */
Read read_int(const cJSON* obj, const char* key, int* out);
/* An integer array of exactly n elements; an element that is not a number
 * reads as -1, one that does not fit an int fails the whole read. */
Read read_ints(const cJSON* obj, const char* key, int n, int* out);
/* The same for an array of any size, of which the first `cap` elements are
 * stored; *size gets the array's own size, capped at `cap`. */
Read read_ints_upto(const cJSON* obj, const char* key, int cap, int* out, int* size);
/* A string, cut to fit `cap` bytes with its terminator. */
Read read_str(const cJSON* obj, const char* key, char* out, size_t cap);
Read read_bool(const cJSON* obj, const char* key, bool* out);

}  // namespace kx

#endif /* KX_APPLICATION_KX_REPLY_H */
