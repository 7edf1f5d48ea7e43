// LMDB's file, as far as it is looked at; integers little-endian.
//
//   file      = meta-page, meta-page, * page                 ; transaction n writes meta page n & 1
//   page      = u64 number, u16 pad, u16 flags, lower-upper / u32 pages, contents
//               ; flags are the kind alone: the others are of pages in memory, and LMDB would write into
//               ; the map if a page of the file had one
//   lower-upper = u16 end of the offsets, u16 begin of the nodes
//   meta-page = page header, u32 magic, u32 version, u64 address, u64 map size, tree of free pages,
//               tree of tables, u64 last page, u64 transaction
//   tree      = u32 page size or pad, u16 flags, u16 depth, u64 branch pages, u64 leaf pages,
//               u64 overflow pages, u64 entries, u64 root
//   branch, leaf = page header, * u16 offset of a node, ..., * node
//   node      = u16 low, u16 high, u16 flags, u16 key size, key, data
//               ; of a leaf low and high are the data's size, of a branch low, high and flags the child
//   big data  = u64 number of the first overflow page
//   free list = u64 count, * u64 page number, descending
#include "service/store/lmdb_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

namespace service {
namespace {

constexpr size_t kHeaderBytes = 16;
constexpr size_t kNodeBytes = 8;
constexpr size_t kTreeBytes = 48;
constexpr uint32_t kMagic = 0xBEEFC0DE;
constexpr uint32_t kVersion = 1;
constexpr uint16_t kBranch = 0x01, kLeaf = 0x02, kOverflow = 0x04, kMeta = 0x08;
constexpr uint16_t kBigData = 0x01, kSubTree = 0x02;
constexpr uint16_t kIntegerKey = 0x08;
constexpr uint64_t kNoPage = UINT64_MAX;
constexpr size_t kMaxDepth = 32;
constexpr uint64_t kMostMapBytes = uint64_t{1} << 47;
constexpr size_t kMaxKeyBytes = 511;
constexpr int kAttempts = 100;

template <typename Number>
Number At(const char* bytes) noexcept {
    Number number{};
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

struct Tree {
    explicit Tree(const char* bytes) noexcept
        : pad(At<uint32_t>(bytes)),
          flags(At<uint16_t>(bytes + 4)),
          depth(At<uint16_t>(bytes + 6)),
          branch_pages(At<uint64_t>(bytes + 8)),
          leaf_pages(At<uint64_t>(bytes + 16)),
          overflow_pages(At<uint64_t>(bytes + 24)),
          entries(At<uint64_t>(bytes + 32)),
          root(At<uint64_t>(bytes + 40)) {}

    uint32_t pad;
    uint16_t flags, depth;
    uint64_t branch_pages, leaf_pages, overflow_pages, entries, root;
};

struct Meta {
    explicit Meta(const char* page) noexcept
        : number(At<uint64_t>(page)),
          flags(At<uint16_t>(page + 10)),
          magic(At<uint32_t>(page + kHeaderBytes)),
          version(At<uint32_t>(page + kHeaderBytes + 4)),
          map_bytes(At<uint64_t>(page + kHeaderBytes + 16)),
          free(page + kHeaderBytes + 24),
          tables(page + kHeaderBytes + 24 + kTreeBytes),
          last_page(At<uint64_t>(page + kHeaderBytes + 24 + 2 * kTreeBytes)),
          transaction(At<uint64_t>(page + kHeaderBytes + 32 + 2 * kTreeBytes)) {}

    bool Holds(size_t index, size_t page_bytes) const noexcept {
        const bool is_lmdb = magic == kMagic && version == kVersion && number == index && flags == kMeta &&
                             free.pad == page_bytes;
        const bool is_sane = free.flags == kIntegerKey && tables.flags == 0 && last_page >= 1 &&
                             map_bytes <= kMostMapBytes && last_page < kMostMapBytes / page_bytes;
        return is_lmdb && is_sane && IsWithin(free) && IsWithin(tables) &&
               (transaction == 0 || (transaction & 1) == index);
    }
    bool IsWithin(const Tree& tree) const noexcept {
        return tree.depth <= kMaxDepth &&
               (tree.root == kNoPage || (tree.root >= 2 && tree.root <= last_page));
    }

    uint64_t number;
    uint16_t flags;
    uint32_t magic, version;
    uint64_t map_bytes;
    Tree free, tables;
    uint64_t last_page, transaction;
};

struct Metas {
    size_t page_bytes = 0;
    std::vector<Meta> pages;
};

// The page size stands in the first of them.
bool ReadMetas(int fd, Metas& metas) {
    constexpr size_t kMetaBytes = kHeaderBytes + 40 + 2 * kTreeBytes;
    std::array<char, kMetaBytes> bytes{};
    metas.pages.clear();
    if (pread(fd, bytes.data(), kMetaBytes, 0) != static_cast<ssize_t>(kMetaBytes)) return false;
    metas.pages.emplace_back(bytes.data());
    metas.page_bytes = metas.pages[0].free.pad;
    const bool is_size = metas.page_bytes >= 512 && metas.page_bytes <= 65'536 &&
                         (metas.page_bytes & (metas.page_bytes - 1)) == 0;
    if (!is_size) return false;
    const auto second = static_cast<off_t>(metas.page_bytes);
    if (pread(fd, bytes.data(), kMetaBytes, second) != static_cast<ssize_t>(kMetaBytes)) return false;
    metas.pages.emplace_back(bytes.data());
    return true;
}

// The first state has both pages alike; later ones are a transaction apart.
bool IsSound(const Metas& metas) noexcept {
    for (size_t i = 0; i < metas.pages.size(); ++i) {
        if (!metas.pages[i].Holds(i, metas.page_bytes)) return false;
    }
    const uint64_t a = metas.pages[0].transaction;
    const uint64_t b = metas.pages[1].transaction;
    return a == b ? a == 0 : (a > b ? a - b : b - a) == 1;
}

// LMDB may leave out the last pages, which nobody uses; but not most of a file.
std::string LengthFault(int fd, const Metas& metas) {
    constexpr uint64_t kPagesLeftOut = 65'536;
    struct stat facts {};
    if (fstat(fd, &facts) != 0) return {};
    const uint64_t there = static_cast<uint64_t>(facts.st_size) / metas.page_bytes;
    const uint64_t told = std::max(metas.pages[0].last_page, metas.pages[1].last_page) + 1;
    if (told <= 2 * there + kPagesLeftOut) return {};
    return "it should have " + std::to_string(told) + " pages and has " + std::to_string(there);
}

// One state's trees, page after page.
class PageWalk {
 public:
    PageWalk(int fd, size_t page_bytes, const Meta& meta, FunctionRef<bool(const std::string&)> found)
        : fd_(fd), page_bytes_(page_bytes), last_page_(meta.last_page), found_(found) {
        used_.resize(last_page_ + 1);
    }

    void Run(const Meta& meta) {
        WalkTree("the free pages", meta.free, true);
        if (goes_on_) WalkTree("the tables", meta.tables, false);
        for (size_t i = 0; goes_on_ && i < free_pages_.size(); ++i) {
            if (used_[free_pages_[i]]) Report(free_pages_[i], "is in use and among the free pages");
        }
    }

 private:
    struct Place {
        const char* what;
        bool is_free_list;
        bool has_integer_keys;
        uint64_t branches = 0, leaves = 0, overflows = 0, entries = 0;
        std::string last_key, least_key;
        bool has_last = false;
    };

    void Report(uint64_t page, const std::string& what) {
        if (goes_on_) goes_on_ = found_("page " + std::to_string(page) + " of the data file " + what);
    }

    bool Take(uint64_t page, const char* what) {
        if (page < 2 || page > last_page_) {
            Report(page, std::string("does not exist, but ") + what + " lead to it");
            return false;
        }
        if (used_[page]) Report(page, std::string("is used twice, also for ") + what);
        const bool is_new = !used_[page];
        used_[page] = true;
        return is_new;
    }

    bool ReadPage(uint64_t page, std::vector<char>& bytes) {
        bytes.resize(page_bytes_);
        const auto place = static_cast<off_t>(page * page_bytes_);
        if (pread(fd_, bytes.data(), page_bytes_, place) == static_cast<ssize_t>(page_bytes_)) return true;
        Report(page, "cannot be read: the file ends before it");
        return false;
    }

    void WalkTree(const char* what, const Tree& tree, bool is_free_list) {
        Place place{what, is_free_list, (tree.flags & kIntegerKey) != 0, 0, 0, 0, 0, {}, {}, false};
        const bool is_empty = tree.root == kNoPage;
        if (is_empty != (tree.depth == 0) || tree.depth > kMaxDepth)
            return Report(is_empty ? 0 : tree.root, std::string("is of a wrong depth below ") + what);
        if (!is_empty) WalkPage(place, tree.root, tree.depth);
        const bool agrees = place.branches == tree.branch_pages && place.leaves == tree.leaf_pages &&
                            place.overflows == tree.overflow_pages && place.entries == tree.entries;
        if (goes_on_ && !agrees)
            Report(is_empty ? 0 : tree.root,
                   std::string("tells another number of pages or entries of ") + what + " than there are");
    }

    void WalkPage(Place& place, uint64_t number, size_t levels) {
        std::vector<char> page;
        if (!Take(number, place.what) || !ReadPage(number, page)) return;
        const uint16_t kind = levels > 1 ? kBranch : kLeaf;
        ++(levels > 1 ? place.branches : place.leaves);
        const auto lower = At<uint16_t>(page.data() + 12);
        const auto upper = At<uint16_t>(page.data() + 14);
        const bool is_page = At<uint64_t>(page.data()) == number && At<uint16_t>(page.data() + 10) == kind &&
                             lower >= kHeaderBytes && lower % 2 == 0 && lower <= upper &&
                             upper <= page_bytes_;
        if (!is_page) return Report(number, std::string("is damaged, which should hold ") + place.what);
        const size_t count = (lower - kHeaderBytes) / 2;
        if (count == 0)
            return Report(number, std::string("is damaged: it holds too little of ") + place.what);
        for (size_t i = 0; goes_on_ && i < count; ++i) {
            const size_t offset = At<uint16_t>(page.data() + kHeaderBytes + 2 * i);
            if (offset < upper || offset + kNodeBytes > page_bytes_)
                return Report(number, "is damaged: an entry lies outside it");
            const std::string_view node(page.data() + offset, page_bytes_ - offset);
            if (!(levels > 1 ? WalkBranch(place, number, node, i, levels) : WalkLeaf(place, number, node)))
                return;
        }
    }

    static bool ComesBefore(const Place& place, std::string_view a, std::string_view b) noexcept {
        if (place.has_integer_keys && a.size() == sizeof(uint64_t) && b.size() == sizeof(uint64_t))
            return At<uint64_t>(a.data()) < At<uint64_t>(b.data());
        return a < b;
    }

    bool WalkBranch(Place& place, uint64_t number, std::string_view node, size_t index, size_t levels) {
        const size_t key_bytes = At<uint16_t>(node.data() + 6);
        if (key_bytes > node.size() - kNodeBytes || key_bytes > kMaxKeyBytes) {
            Report(number, "is damaged: a key reaches beyond it");
            return false;
        }
        const uint64_t child = At<uint16_t>(node.data()) | uint64_t{At<uint16_t>(node.data() + 2)} << 16 |
                               uint64_t{At<uint16_t>(node.data() + 4)} << 32;
        // The first key of a branch is not looked at by anybody, and may be anything.
        const std::string_view key = node.substr(kNodeBytes, key_bytes);
        if (index != 0) {
            if (place.has_last && !ComesBefore(place, place.last_key, key)) {
                Report(number, "is damaged: its keys are out of order");
                return false;
            }
            place.least_key = key;
        }
        WalkPage(place, child, levels - 1);
        return goes_on_;
    }

    bool WalkLeaf(Place& place, uint64_t number, std::string_view node) {
        const size_t key_bytes = At<uint16_t>(node.data() + 6);
        const uint16_t flags = At<uint16_t>(node.data() + 4);
        const uint64_t data_bytes = At<uint16_t>(node.data()) | uint64_t{At<uint16_t>(node.data() + 2)} << 16;
        const bool is_big = (flags & kBigData) != 0;
        const bool is_known = (flags & ~(kBigData | kSubTree)) == 0 && key_bytes != 0 &&
                              key_bytes <= kMaxKeyBytes &&
                              !(place.has_integer_keys && key_bytes != sizeof(uint64_t));
        const size_t stored = is_big ? sizeof(uint64_t) : data_bytes;
        if (!is_known || kNodeBytes + key_bytes + stored > node.size()) {
            Report(number, "is damaged: an entry is of a wrong size");
            return false;
        }
        const std::string_view key = node.substr(kNodeBytes, key_bytes);
        const bool is_ordered = (!place.has_last || ComesBefore(place, place.last_key, key)) &&
                                (place.least_key.empty() || !ComesBefore(place, key, place.least_key));
        if (!is_ordered) {
            Report(number, "is damaged: its keys are out of order");
            return false;
        }
        place.last_key = key;
        place.has_last = true;
        place.least_key.clear();
        ++place.entries;
        const char* const data = node.data() + kNodeBytes + key_bytes;
        if (is_big) return WalkOverflow(place, At<uint64_t>(data), data_bytes);
        if (place.is_free_list) return NoteFree(number, data, data_bytes);
        if ((flags & kSubTree) == 0) return true;
        if (data_bytes != kTreeBytes) {
            Report(number, "is damaged: a table is of a wrong size");
            return false;
        }
        const std::string name = "the table \"" + std::string(key) + "\"";
        WalkTree(name.c_str(), Tree(data), false);
        return goes_on_;
    }

    bool WalkOverflow(Place& place, uint64_t first, uint64_t data_bytes) {
        std::vector<char> page;
        if (!Take(first, place.what) || !ReadPage(first, page)) return goes_on_;
        const uint64_t count = At<uint32_t>(page.data() + 12);
        const bool is_overflow = At<uint64_t>(page.data()) == first &&
                                 At<uint16_t>(page.data() + 10) == kOverflow &&
                                 count >= (kHeaderBytes - 1 + data_bytes) / page_bytes_ + 1;
        if (!is_overflow || count > last_page_ - first + 1) {
            Report(first, std::string("is damaged, which should begin a long entry of ") + place.what);
            return goes_on_;
        }
        place.overflows += count;
        for (uint64_t i = 1; goes_on_ && i < count; ++i)
            Take(first + i, place.what);
        struct stat facts {};
        if (fstat(fd_, &facts) == 0 &&
            static_cast<uint64_t>(facts.st_size) < first * page_bytes_ + kHeaderBytes + data_bytes)
            Report(first, "cannot be read: the file ends within it");
        if (!place.is_free_list || !goes_on_) return goes_on_;
        std::vector<char> list(data_bytes);
        const auto where = static_cast<off_t>(first * page_bytes_ + kHeaderBytes);
        if (pread(fd_, list.data(), list.size(), where) == static_cast<ssize_t>(list.size()))
            return NoteFree(first, list.data(), data_bytes);
        return goes_on_;
    }

    bool NoteFree(uint64_t page, const char* data, uint64_t data_bytes) {
        const uint64_t count = data_bytes >= sizeof(uint64_t) ? At<uint64_t>(data) : kNoPage;
        if (count > data_bytes / sizeof(uint64_t) - (data_bytes >= sizeof(uint64_t) ? 1 : 0)) {
            Report(page, "is damaged: a list of free pages is of a wrong size");
            return goes_on_;
        }
        uint64_t last = kNoPage;
        for (uint64_t i = 1; i <= count; ++i) {
            const auto free = At<uint64_t>(data + i * sizeof(uint64_t));
            if (free < 2 || free > last_page_ || free >= last) {
                Report(page, "is damaged: a list of free pages is out of order");
                return goes_on_;
            }
            last = free;
            free_pages_.push_back(free);
        }
        return true;
    }

    const int fd_;
    const size_t page_bytes_;
    const uint64_t last_page_;
    FunctionRef<bool(const std::string&)> found_;
    std::vector<bool> used_;
    std::vector<uint64_t> free_pages_;
    bool goes_on_ = true;
};

}  // namespace

// Another process may be writing one of the pages, so a fault is looked at again.
std::string LmdbFile::MetaFault() const {
    struct stat facts {};
    if (fstat(fd_, &facts) == 0 && facts.st_size == 0) return {};
    Metas metas;
    bool is_read = false;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        is_read = ReadMetas(fd_, metas);
        if (is_read && IsSound(metas)) return LengthFault(fd_, metas);
    }
    return is_read ? "its first two pages are damaged" : "it does not begin as a data file does";
}

bool LmdbFile::IsUnfinished() const {
    Metas metas;
    if (ReadMetas(fd_, metas) || metas.pages.size() != 1) return false;
    const Meta& first = metas.pages.front();
    return first.magic == kMagic && first.transaction == 0 && first.tables.root == kNoPage &&
           first.free.root == kNoPage;
}

bool LmdbFile::FindFaults(uint64_t number, FunctionRef<bool(const std::string&)> found) const {
    Metas metas;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (ReadMetas(fd_, metas) && IsSound(metas)) break;
    }
    for (const Meta& meta : metas.pages) {
        if (meta.transaction != number) continue;
        PageWalk(fd_, metas.page_bytes, meta, found).Run(meta);
        return true;
    }
    return false;
}

}  // namespace service
