// subroutine.h - how a subroutine of the dialect is written in C++.
//
//   VBC_SUBROUTINE(VELDAUtilityExit, parm1) { ... }
//
// defines the export `void VBC_VELDAUtilityExit(DP *dp, const char *letters, VAR *parm1)`. In the body `dp` and the
// arguments (as VAR &) are in scope, `return;` ends the subroutine, and the call is bracketed by
// VLibCSUBROUTINE_INIT3_VV and VLibCSUBROUTINE_END_VI. A wrong number of arguments ends the command with a message.
// A function of the dialect is the same with its result cell as the first argument. Up to 12 arguments. While it runs,
// its context is the thread's current one.
//
//   VBC_UNDERSCORE_ALIAS(VBC_visit_emulation, VBC_visit_5Femulation)
//
// exports a name that holds "_" under its escaped spelling too.
#pragma once

#include "runtime/vdefc.h"

extern "C" {
// Entry of a subroutine: checks the letters, one for each argument ("V" a cell, "A" a matrix, so "VA" has a matrix
// second), against the number of arguments the subroutine takes, reports a mismatch with the subroutine's name and
// stops the command. Makes `dp` current and gives the call a return stack of its own.
VELDA_EXPORT void VLibCSUBROUTINE_INIT3_VV(DP *dp, const char *name, const char *letters, int arguments);
// End of a subroutine: releases what VLibCSUBROUTINE_INIT3_VV bound. The status is 0.
VELDA_EXPORT void VLibCSUBROUTINE_END_VI(DP *dp, int status);
}

namespace velda {
class SubroutineCall {
  public:
    SubroutineCall(DP *dp, const char *name, const char *letters, int arguments) : dp_(dp) {
        VLibCSUBROUTINE_INIT3_VV(dp, name, letters, arguments);
    }
    ~SubroutineCall() { VLibCSUBROUTINE_END_VI(dp_, 0); }
    SubroutineCall(const SubroutineCall &) = delete;
    SubroutineCall &operator=(const SubroutineCall &) = delete;

  private:
    DP *dp_;
};
}  // namespace velda

#define VBC_COUNT(...) VBC_COUNT_PICK(__VA_ARGS__ __VA_OPT__(, ) 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define VBC_COUNT_PICK(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, count, ...) count
#define VBC_CONCAT(a, b) VBC_CONCAT_NOW(a, b)
#define VBC_CONCAT_NOW(a, b) a##b
#define VBC_EACH(M, ...) VBC_CONCAT(VBC_EACH_, VBC_COUNT(__VA_ARGS__))(M __VA_OPT__(, ) __VA_ARGS__)
#define VBC_EACH_0(M)
#define VBC_EACH_1(M, a) , M(a)
#define VBC_EACH_2(M, a, ...) , M(a) VBC_EACH_1(M, __VA_ARGS__)
#define VBC_EACH_3(M, a, ...) , M(a) VBC_EACH_2(M, __VA_ARGS__)
#define VBC_EACH_4(M, a, ...) , M(a) VBC_EACH_3(M, __VA_ARGS__)
#define VBC_EACH_5(M, a, ...) , M(a) VBC_EACH_4(M, __VA_ARGS__)
#define VBC_EACH_6(M, a, ...) , M(a) VBC_EACH_5(M, __VA_ARGS__)
#define VBC_EACH_7(M, a, ...) , M(a) VBC_EACH_6(M, __VA_ARGS__)
#define VBC_EACH_8(M, a, ...) , M(a) VBC_EACH_7(M, __VA_ARGS__)
#define VBC_EACH_9(M, a, ...) , M(a) VBC_EACH_8(M, __VA_ARGS__)
#define VBC_EACH_10(M, a, ...) , M(a) VBC_EACH_9(M, __VA_ARGS__)
#define VBC_EACH_11(M, a, ...) , M(a) VBC_EACH_10(M, __VA_ARGS__)
#define VBC_EACH_12(M, a, ...) , M(a) VBC_EACH_11(M, __VA_ARGS__)
#define VBC_AS_REFERENCE(a) [[maybe_unused]] VAR &a
#define VBC_AS_POINTER(a) VAR *a
#define VBC_DEREFERENCED(a) *a

#define VBC_SUBROUTINE(Name, ...)                                                                                      \
    static void Name##_body([[maybe_unused]] DP *dp VBC_EACH(VBC_AS_REFERENCE __VA_OPT__(, ) __VA_ARGS__));            \
    extern "C" VELDA_EXPORT void VBC_##Name(DP *dp,                                                                    \
                                            const char *letters VBC_EACH(VBC_AS_POINTER __VA_OPT__(, ) __VA_ARGS__)) { \
        const velda::SubroutineCall call(dp, #Name, letters, VBC_COUNT(__VA_ARGS__));                                  \
        Name##_body(dp VBC_EACH(VBC_DEREFERENCED __VA_OPT__(, ) __VA_ARGS__));                                         \
    }                                                                                                                  \
    static void Name##_body([[maybe_unused]] DP *dp VBC_EACH(VBC_AS_REFERENCE __VA_OPT__(, ) __VA_ARGS__))

#define VBC_UNDERSCORE_ALIAS(Plain, Escaped) \
    extern "C" VELDA_EXPORT __typeof__(Plain) Escaped __attribute__((alias(#Plain)));
