// A C program against the installed headers: it holds cells, makes a dynamic array, runs a command, and reads a file.
#include <runtime/vutil.h>
#include <stdio.h>
#include <string.h>

static void body(DP *dp, void *argument)
{
    VAR record, name, element;
    memset(&record, 0, sizeof record);
    memset(&name, 0, sizeof name);
    memset(&element, 0, sizeof element);
    VLibBSTORE_VBS(dp, &name, "C");
    VLibECOMPLEX_STORE_VBIIIIIIB(dp, &record, 2, 1, 0, 0, 0, 0, &name);
    VLibEEXTRACT_BBBIII(dp, &element, &record, 2, 1, 0);
    *(int *)argument = VLibELENC_IB(dp, &element) == 1 && record.form & VELDA_FORM_OWNED;
    VLibBStoreFreeVar_VB(dp, &record);
    VLibBStoreFreeVar_VB(dp, &name);
    VLibBStoreFreeVar_VB(dp, &element);
    VLibCEXIT_VI(dp, 7, 0);
}

int main(void)
{
    int worked = 0;
    const int code = velda_run(velda_getdp(), "C.PROGRAM", body, &worked);
    printf("%d %d\n", worked, code);
    return worked && code == 7 ? 0 : 1;
}
