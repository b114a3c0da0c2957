/*
 * Decrypts AES-128 in CBC mode with padding, as HLS encrypts its pieces. Part of fluvia_avio.h.
 *
 * FFmpeg has this behind its "crypto:" addresses, which open what is encrypted by themselves.
 */
#ifndef FLUVIA_DECRYPT_H_
#define FLUVIA_DECRYPT_H_

#include <stdint.h>

typedef struct FluviaDecrypt FluviaDecrypt;

/* Gives bytes and returns how many, or an AVERROR code; AVERROR_EOF at the end. */
typedef int (*FluviaDecryptSource)(void* data, uint8_t* buffer, int size);

/* 32 hexadecimal digits each. Null when they are not, or when memory runs out. */
FluviaDecrypt* fluvia_decrypt_new(const char* key, const char* iv);

/*
 * Reads at most size bytes, fewer only where the source gives fewer. Returns how many, or an
 * AVERROR code: AVERROR_INVALIDDATA when the source is no whole number of blocks or the padding is
 * wrong.
 */
int fluvia_decrypt_read(FluviaDecrypt* decrypt, FluviaDecryptSource source, void* data,
                        uint8_t* buffer, int size);

/* Makes *decrypt null. Null is none. */
void fluvia_decrypt_free(FluviaDecrypt** decrypt);

#endif /* FLUVIA_DECRYPT_H_ */
