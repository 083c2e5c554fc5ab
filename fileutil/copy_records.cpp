// COPY from file to file.
#include "fileutil/copy_command.h"
#include "fileutil/fileutil.h"

using namespace velda;
using namespace velda::copy;

namespace {

class RecordCopier {
  public:
    explicit RecordCopier(CopyJob &job) : job_(job), copy_(job.SourceFile, job.TargetFile) {}

    void copy_list() {
        VAR key;
        while (job_.SourceList.next(key)) copy_record(frame::without_quotes(key));
        copy_.flush();
        if (!job_.has('Q')) print_message("COPY_DONE", count_);
    }

  private:
    void copy_record(const VAR &key) {
        if (!copy_.read(record_, key)) {
            job_.NotFound.append(key);
            return;
        }
        VAR target_key;
        if (!job_.TargetList.next(target_key)) target_key = key;
        if (!job_.has('O') && copy_.target_has(target_key)) {
            print_line_on(job_.print_unit, "'", target_key, "' already exists");
            return;
        }
        ++count_;
        if (job_.compressed) edit_expand(record_);
        if (job_.has('I') && !job_.has('Q')) show_key(key, target_key);
        copy_.write(target_key, record_);
        if (job_.has('D')) copy_.remove_source(key);
    }

    void show_key(const VAR &key, const VAR &target_key) const {
        print_on(job_.print_unit, format(count_, "R#6"), " ", key);
        if (target_key.view() != key.view()) print_on(job_.print_unit, " --> ", target_key);
        print_line_on(job_.print_unit);
    }

    CopyJob &job_;
    BulkCopy copy_;
    VAR record_;
    int count_ = 0;
};

}  // namespace

void copy::copy_records(CopyJob &job) { RecordCopier(job).copy_list(); }
