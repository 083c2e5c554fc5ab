// Open files by name, so that an update of a file in use opens nothing.
#include <algorithm>

#include "journal/duplicator/dup_batch.h"
#include "journal/duplicator/duplicator.h"

namespace velda::journal {

namespace {

// An open file holds some descriptors: its data, its lock file, the runtime's own.
constexpr std::int64_t DescriptorsOfFile = 4;
constexpr std::int64_t DescriptorsBeside = 256;

using Bucket = std::array<CachedFile, CachedFilesOfBucket>;

std::uint32_t hash_of(std::string_view name) {
    return VediBaseHashUINT(name.data(), static_cast<std::uint32_t>(name.size()), VEDI_HASH_CASE_BLIND);
}

bool is_entry_of(const CachedFile &cached, std::uint32_t hash, std::string_view name) {
    return cached.file && cached.hash == hash && cached.name.size() == name.size() &&
           VediBaseUmemcmp(cached.name.data(), name.data(), static_cast<std::uint32_t>(name.size())) == 0;
}

void move_to_front(Bucket &bucket, Bucket::iterator entry) { std::rotate(bucket.begin(), entry, entry + 1); }

void close_entry(DP *dp, DupContext &context, CachedFile &cached) {
    context.memo.file = nullptr;
    if (context.batch) context.batch->forget(cached.file.get());
    VediClose(dp, cached.file.get(), 0);
    cached.file.reset();
    cached.name.clear();
}

// The first free entry; without one the entry used longest ago, which is closed.
Bucket::iterator free_entry(DP *dp, DupContext &context, Bucket &bucket) {
    const auto unused = std::ranges::find_if(bucket, [](const CachedFile &cached) { return !cached.file; });
    if (unused != bucket.end()) return unused;
    apply_pending(dp);
    close_entry(dp, context, bucket.back());
    return bucket.end() - 1;
}

int open_entry(DP *dp, const DupContext &context, CachedFile &cached) {
    cached.file = std::make_unique<VediControlBlock>();
    const int error = VediOpen(dp, cached.file.get(), cached.name.c_str(), 0, 0);
    if (error == 0 && context.exclusive) cached.file->flags |= VEDI_FILE_EXCLUSIVE;
    if (error != 0) cached.file.reset();
    VediLoggerMisc(dp, LoggerFreshView);
    return error;
}

}  // namespace

VediControlBlock *open_cached(DP *dp, std::string_view name, int &error) {
    DupContext &context = dup_context(dp);
    const std::uint32_t hash = hash_of(name);
    Bucket &bucket = context.fileCache[hash % CacheBuckets];
    const auto known =
        std::ranges::find_if(bucket, [&](const CachedFile &cached) { return is_entry_of(cached, hash, name); });
    if (known != bucket.end()) {
        move_to_front(bucket, known);
        return bucket.front().file.get();
    }
    if (!context.allowsManyFiles) {
        velda_allow_open_files(dp, CacheBuckets * CachedFilesOfBucket * DescriptorsOfFile + DescriptorsBeside);
        context.allowsManyFiles = true;
    }
    move_to_front(bucket, free_entry(dp, context, bucket));
    CachedFile &cached = bucket.front();
    cached.name = name;
    cached.hash = hash;
    error = open_entry(dp, context, cached);
    return cached.file.get();
}

void report_failed_open(DP *dp, std::string_view name, int error, const unsigned char *record) {
    DupReport(dp, dup_context(dp).output, record, Severity::Error, "Unable to open file '%s' , error value %d",
              std::string(name).c_str(), error);
}

VediControlBlock *DupOpenCached(DP *dp, const char *name, std::uint32_t length, const unsigned char *record) {
    int error = 0;
    VediControlBlock *const file = open_cached(dp, {name, length}, error);
    if (!file) report_failed_open(dp, {name, length}, error, record);
    return file;
}

void close_cached(DP *dp, DupContext &context, std::string_view name) {
    for (Bucket &bucket : context.fileCache)
        for (CachedFile &cached : bucket)
            if (cached.file && cached.name.size() == name.size() && is_entry_of(cached, cached.hash, name))
                close_entry(dp, context, cached);
}

void close_all_cached(DP *dp, DupContext &context) {
    for (Bucket &bucket : context.fileCache)
        for (CachedFile &cached : bucket)
            if (cached.file) close_entry(dp, context, cached);
}

}  // namespace velda::journal
