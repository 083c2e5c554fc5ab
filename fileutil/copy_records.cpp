// COPY from file to file.
#include "fileutil/copy_command.h"
#include "fileutil/fileutil.h"

using namespace velda;
using namespace velda::copy;

namespace {

class RecordCopier {
  public:
    explicit RecordCopier(CopyJob &job)
        : job_(job),
          copy_(job.SourceFile, job.TargetFile, job.has('D') ? BulkCopy::Source::Moves : BulkCopy::Source::Stays) {}

    void copy_list() {
        VAR key;
        for (bool found; copy_.next(job_.SourceList, key, record_, found);) {
            if (frame::is_quoted(key)) found = read_without_quotes(key);
            if (found)
                copy_record(key);
            else
                job_.NotFound.append(key);
        }
        copy_.flush();
        if (!job_.has('Q')) print_message("COPY_DONE", count_);
    }

  private:
    bool read_without_quotes(VAR &key) {
        key = frame::without_quotes(key);
        return copy_.read(record_, key);
    }

    void copy_record(const VAR &key) {
        if (!job_.TargetList.next(target_key_)) target_key_ = key;
        if (!job_.has('O') && copy_.target_has(target_key_)) {
            print_line_on(job_.print_unit, "'", target_key_, "' already exists");
            return;
        }
        ++count_;
        if (job_.compressed) edit_expand(record_);
        if (job_.has('I') && !job_.has('Q')) show_key(key);
        copy_.write(target_key_, record_);
        if (job_.has('D')) copy_.remove_source(key);
    }

    void show_key(const VAR &key) const {
        print_on(job_.print_unit, format(count_, "R#6"), " ", key);
        if (target_key_.view() != key.view()) print_on(job_.print_unit, " --> ", target_key_);
        print_line_on(job_.print_unit);
    }

    CopyJob &job_;
    BulkCopy copy_;
    VAR record_;
    VAR target_key_;
    int count_ = 0;
};

}  // namespace

void copy::copy_records(CopyJob &job) { RecordCopier(job).copy_list(); }
