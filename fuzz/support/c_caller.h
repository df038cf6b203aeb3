// The public transforms called the way a C caller calls them: every
// enumeration travels as a plain int, whatever its value.
#ifndef OQA_FUZZ_SUPPORT_C_CALLER_H
#define OQA_FUZZ_SUPPORT_C_CALLER_H

#ifdef __cplusplus
extern "C" {
#endif

// A non-zero `use_default_entry` calls the entry that runs the level chosen
// by initialise; `instruction_set_level` is then ignored.
int oqa_fuzz_call_transform(int width, int height, int origin_x, int origin_y, int phase,
                            int color_format, int color_filter_type, int bit_depth,
                            const unsigned short* input_buffer, unsigned short* output_buffer,
                            int instruction_set_level, int use_default_entry);

#ifdef __cplusplus
}
#endif

#endif  // OQA_FUZZ_SUPPORT_C_CALLER_H
