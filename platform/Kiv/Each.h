#pragma once
// KIV_EACH( m, a, b, c ) is m( a ) m( b ) m( c ); KIV_EACH_COMMA puts commas between. From one to
// 40 arguments. Written out in a chain, since the recursive form fills a screen with every error.

#define KIV_EACH( m, ... )                                                                         \
   KIV_EACH_PICK_( __VA_ARGS__, 40, 39, 38, 37, 36, 35, 34, 33, 32, 31, 30, 29, 28, 27, 26, 25,    \
                   24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4,   \
                   3, 2, 1, 0 )                                                                    \
   ( m, KIV_EACH_NONE_, __VA_ARGS__ )
#define KIV_EACH_COMMA( m, ... )                                                                   \
   KIV_EACH_PICK_( __VA_ARGS__, 40, 39, 38, 37, 36, 35, 34, 33, 32, 31, 30, 29, 28, 27, 26, 25,    \
                   24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4,   \
                   3, 2, 1, 0 )                                                                    \
   ( m, KIV_EACH_SEP_, __VA_ARGS__ )

#define KIV_EACH_NONE_()
#define KIV_EACH_SEP_() ,
#define KIV_EACH_PICK_( a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16,     \
                        a17, a18, a19, a20, a21, a22, a23, a24, a25, a26, a27, a28, a29, a30, a31, \
                        a32, a33, a34, a35, a36, a37, a38, a39, a40, pick, ... )                   \
   KIV_EACH_##pick##_

// clang-format off
#define KIV_EACH_1_( m, s, x ) m( x )
#define KIV_EACH_2_( m, s, x, ... ) m( x ) s() KIV_EACH_1_( m, s, __VA_ARGS__ )
#define KIV_EACH_3_( m, s, x, ... ) m( x ) s() KIV_EACH_2_( m, s, __VA_ARGS__ )
#define KIV_EACH_4_( m, s, x, ... ) m( x ) s() KIV_EACH_3_( m, s, __VA_ARGS__ )
#define KIV_EACH_5_( m, s, x, ... ) m( x ) s() KIV_EACH_4_( m, s, __VA_ARGS__ )
#define KIV_EACH_6_( m, s, x, ... ) m( x ) s() KIV_EACH_5_( m, s, __VA_ARGS__ )
#define KIV_EACH_7_( m, s, x, ... ) m( x ) s() KIV_EACH_6_( m, s, __VA_ARGS__ )
#define KIV_EACH_8_( m, s, x, ... ) m( x ) s() KIV_EACH_7_( m, s, __VA_ARGS__ )
#define KIV_EACH_9_( m, s, x, ... ) m( x ) s() KIV_EACH_8_( m, s, __VA_ARGS__ )
#define KIV_EACH_10_( m, s, x, ... ) m( x ) s() KIV_EACH_9_( m, s, __VA_ARGS__ )
#define KIV_EACH_11_( m, s, x, ... ) m( x ) s() KIV_EACH_10_( m, s, __VA_ARGS__ )
#define KIV_EACH_12_( m, s, x, ... ) m( x ) s() KIV_EACH_11_( m, s, __VA_ARGS__ )
#define KIV_EACH_13_( m, s, x, ... ) m( x ) s() KIV_EACH_12_( m, s, __VA_ARGS__ )
#define KIV_EACH_14_( m, s, x, ... ) m( x ) s() KIV_EACH_13_( m, s, __VA_ARGS__ )
#define KIV_EACH_15_( m, s, x, ... ) m( x ) s() KIV_EACH_14_( m, s, __VA_ARGS__ )
#define KIV_EACH_16_( m, s, x, ... ) m( x ) s() KIV_EACH_15_( m, s, __VA_ARGS__ )
#define KIV_EACH_17_( m, s, x, ... ) m( x ) s() KIV_EACH_16_( m, s, __VA_ARGS__ )
#define KIV_EACH_18_( m, s, x, ... ) m( x ) s() KIV_EACH_17_( m, s, __VA_ARGS__ )
#define KIV_EACH_19_( m, s, x, ... ) m( x ) s() KIV_EACH_18_( m, s, __VA_ARGS__ )
#define KIV_EACH_20_( m, s, x, ... ) m( x ) s() KIV_EACH_19_( m, s, __VA_ARGS__ )
#define KIV_EACH_21_( m, s, x, ... ) m( x ) s() KIV_EACH_20_( m, s, __VA_ARGS__ )
#define KIV_EACH_22_( m, s, x, ... ) m( x ) s() KIV_EACH_21_( m, s, __VA_ARGS__ )
#define KIV_EACH_23_( m, s, x, ... ) m( x ) s() KIV_EACH_22_( m, s, __VA_ARGS__ )
#define KIV_EACH_24_( m, s, x, ... ) m( x ) s() KIV_EACH_23_( m, s, __VA_ARGS__ )
#define KIV_EACH_25_( m, s, x, ... ) m( x ) s() KIV_EACH_24_( m, s, __VA_ARGS__ )
#define KIV_EACH_26_( m, s, x, ... ) m( x ) s() KIV_EACH_25_( m, s, __VA_ARGS__ )
#define KIV_EACH_27_( m, s, x, ... ) m( x ) s() KIV_EACH_26_( m, s, __VA_ARGS__ )
#define KIV_EACH_28_( m, s, x, ... ) m( x ) s() KIV_EACH_27_( m, s, __VA_ARGS__ )
#define KIV_EACH_29_( m, s, x, ... ) m( x ) s() KIV_EACH_28_( m, s, __VA_ARGS__ )
#define KIV_EACH_30_( m, s, x, ... ) m( x ) s() KIV_EACH_29_( m, s, __VA_ARGS__ )
#define KIV_EACH_31_( m, s, x, ... ) m( x ) s() KIV_EACH_30_( m, s, __VA_ARGS__ )
#define KIV_EACH_32_( m, s, x, ... ) m( x ) s() KIV_EACH_31_( m, s, __VA_ARGS__ )
#define KIV_EACH_33_( m, s, x, ... ) m( x ) s() KIV_EACH_32_( m, s, __VA_ARGS__ )
#define KIV_EACH_34_( m, s, x, ... ) m( x ) s() KIV_EACH_33_( m, s, __VA_ARGS__ )
#define KIV_EACH_35_( m, s, x, ... ) m( x ) s() KIV_EACH_34_( m, s, __VA_ARGS__ )
#define KIV_EACH_36_( m, s, x, ... ) m( x ) s() KIV_EACH_35_( m, s, __VA_ARGS__ )
#define KIV_EACH_37_( m, s, x, ... ) m( x ) s() KIV_EACH_36_( m, s, __VA_ARGS__ )
#define KIV_EACH_38_( m, s, x, ... ) m( x ) s() KIV_EACH_37_( m, s, __VA_ARGS__ )
#define KIV_EACH_39_( m, s, x, ... ) m( x ) s() KIV_EACH_38_( m, s, __VA_ARGS__ )
#define KIV_EACH_40_( m, s, x, ... ) m( x ) s() KIV_EACH_39_( m, s, __VA_ARGS__ )
// clang-format on
