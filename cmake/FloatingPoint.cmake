# One arithmetic in every build: SSE2 registers instead of x87, no contraction into
# fused operations, no re-ordering. Results depend on it to the last bit.
add_compile_options(-msse2 -mfpmath=sse -ffp-contract=off -fno-fast-math)
