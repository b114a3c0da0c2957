/*
 * Decrypts AES-128 in CBC mode with padding, the encryption of HLS pieces. Part of fluvia_avio.h.
 *
 * FFmpeg offers this for its "crypto:" addresses, but those open the encrypted resource themselves.
 */
#ifndef FLUVIA_DECRYPT_H_
#define FLUVIA_DECRYPT_H_

#include <stdint.h>

typedef struct FluviaDecrypt FluviaDecrypt;

/* Delivers bytes and returns their number, or an AVERROR code; AVERROR_EOF at the end. */
typedef int (*FluviaDecryptSource)(void* data, uint8_t* buffer, int size);

/* 32 hexadecimal digits each. Returns null if they are not, or if memory runs out. */
FluviaDecrypt* fluvia_decrypt_new(const char* key, const char* iv);

/*
 * Reads at most size bytes, fewer only if the source delivers fewer. Returns their number, or an
 * AVERROR code: AVERROR_INVALIDDATA if the source is not a whole number of blocks or the padding is
 * wrong.
 */
int fluvia_decrypt_read(FluviaDecrypt* decrypt, FluviaDecryptSource source, void* data,
                        uint8_t* buffer, int size);

/* Frees *decrypt and sets it to null. Does nothing for null. */
void fluvia_decrypt_free(FluviaDecrypt** decrypt);

#endif /* FLUVIA_DECRYPT_H_ */
