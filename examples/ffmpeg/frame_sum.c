#include "frame_sum.h"

#include <libavutil/error.h>
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <stdio.h>

void frame_sum_print(const uint8_t digest[16]) {
  for (int i = 0; i < 16; ++i) printf("%02x", digest[i]);
  printf("\n");
}

int frame_sum_picture(const AVFrame* frame) {
  const int size = av_image_get_buffer_size(frame->format, frame->width, frame->height, 1);
  uint8_t* bytes = size > 0 ? av_malloc((size_t)size) : NULL;
  uint8_t digest[16];
  if (bytes == NULL) return AVERROR(ENOMEM);
  av_image_copy_to_buffer(bytes, size, (const uint8_t* const*)frame->data, frame->linesize,
                          frame->format, frame->width, frame->height, 1);
  av_md5_sum(digest, bytes, (size_t)size);
  av_free(bytes);
  frame_sum_print(digest);
  return 0;
}

int frame_sum_sound(const AVFrame* frame) {
  const int planar = av_sample_fmt_is_planar(frame->format);
  const int channels = frame->ch_layout.nb_channels;
  const int planes = planar ? channels : 1;
  const int each = planar ? 1 : channels;
  const size_t bytes = (size_t)(frame->nb_samples * each * av_get_bytes_per_sample(frame->format));
  struct AVMD5* sum = av_md5_alloc();
  uint8_t digest[16];
  if (sum == NULL) return AVERROR(ENOMEM);
  av_md5_init(sum);
  for (int i = 0; i < planes; ++i) av_md5_update(sum, frame->extended_data[i], bytes);
  av_md5_final(sum, digest);
  av_free(sum);
  frame_sum_print(digest);
  return 0;
}
