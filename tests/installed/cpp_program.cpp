// A C++ program against the installed headers and the CMake package.
#include <runtime/vutil.h>

static void body(DP *, void *argument)
{
    VAR record;
    record(1) = "ACME";
    record(2, -1) = "item 17";
    velda::crt_line(record(1), " ", velda::dcount(record, velda::AM));
    *static_cast<bool *>(argument) = record(2, 1) == "item 17";
}

int main()
{
    bool worked = false;
    const int code = velda_run(velda_getdp(), "CPP.PROGRAM", body, &worked);
    return worked && code == 0 ? 0 : 1;
}
