// copy_bench: the COPY command, hashed file to hashed file, against raw LMDB that copies the same records in batches.
//
//   copy_bench [FILTER] [RECORDS]
//
// runs the rows whose name holds FILTER, over a file of RECORDS records (50,000) of 200 bytes.
#include "bench/raw_lmdb.h"
#include "fileutil/fileutil.h"

namespace velda::bench {
namespace {

constexpr std::size_t Batch = 1000;
constexpr std::size_t Records = 50000;

void make_file(const std::string &path, const std::string &durability) {
    delete_file(cat("DATA", AM, path));
    if (const auto failure = create_file(cat("DATA", AM, path, AM, "DURABILITY=", durability))) give_up(failure->str());
}

void fill(const std::string &path, std::size_t count) {
    File file;
    if (!file.open(path)) give_up("cannot open " + path);
    const VAR record = str("r", RecordBytes);
    BulkCopy writer(file, file);
    for (std::size_t at = 0; at < count; ++at) writer.write(key_of(at), record);
    writer.flush();
}

std::size_t records_of(const std::string &path) {
    File file;
    if (!file.open(path)) give_up("cannot open " + path);
    return static_cast<std::size_t>(file.status()(VELDA_STATUS_RECORDS).to_integer());
}

// COPY of the whole file as an operator runs it, quiet.
void copy_file(const std::string &source, const std::string &target, const std::string &options) {
    std::string answer = "(" + target;
    const std::string sentence = "COPY " + source + " * (Q" + options;
    const int code = velda_run(
        velda_getdp(), sentence.c_str(),
        [](DP *dp, void *argument) {
            stack_data(*static_cast<std::string *>(argument));
            VAR OutputFlag = 0;
            VBC_VELDACopyCommand(dp, "V", &OutputFlag);
        },
        &answer);
    if (code != 0) give_up("COPY failed");
}

void bench_copy(const Run &run, const std::string &name, const std::string &durability, unsigned raw_flags,
                const std::string &options) {
    if (!run.wanted(name)) return;
    RawFile raw_source(run.path("raw-" + durability), raw_flags);
    raw_source.fill(run.record_count);
    const std::string source = run.path("source-" + durability);
    const std::string target = run.path("target-" + durability);
    make_file(source, durability);
    fill(source, run.record_count);
    std::unique_ptr<RawFile> raw_target;
    File source_file, target_file;  // open as the peer's are
    if (!source_file.open(source)) give_up("cannot open " + source);
    const auto new_targets = [&] {
        raw_target.reset();
        std::filesystem::remove(run.path("raw-target"));
        std::filesystem::remove(run.path("raw-target-lock"));
        raw_target = std::make_unique<RawFile>(run.path("raw-target"), raw_flags);
        target_file.close();
        make_file(target, durability);
        if (!target_file.open(target)) give_up("cannot open " + target);
    };
    compare(
        name, 0.50, run.record_count, [&] { raw_source.copy_to(*raw_target, Batch); },
        [&] { copy_file(source, target, options); }, 5, new_targets);
    if (records_of(target) != run.record_count) give_up("COPY did not copy every record");
}

}  // namespace
}  // namespace velda::bench

int main(int count, char **words) {
    velda::bench::Run run(count, words);
    if (count <= 2) run.record_count = velda::bench::Records;
    setenv("VELDAGLOBALDIR", run.path("global").c_str(), 1);
    using velda::bench::bench_copy;
    bench_copy(run, "COPY sync, of raw LMDB in batches", "SYNC", 0, "");
    bench_copy(run, "COPY lazy, of raw LMDB in batches", "LAZY", velda::bench::LazyFlags, "");
    bench_copy(run, "COPY lazy, overwriting, of raw LMDB in batches", "LAZY", velda::bench::LazyFlags, "O");
}
