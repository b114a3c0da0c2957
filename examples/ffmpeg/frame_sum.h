/* Prints checksums of decoded frames, for frames.c. */
#ifndef FRAME_SUM_H_
#define FRAME_SUM_H_

#include <libavutil/frame.h>
#include <stdint.h>

/* Prints an MD5 and the end of the line. */
void frame_sum_print(const uint8_t digest[16]);

/* Print the MD5 of a picture's or a sound's samples. Return 0 or an AVERROR code. */
int frame_sum_picture(const AVFrame* frame);
int frame_sum_sound(const AVFrame* frame);

#endif /* FRAME_SUM_H_ */
