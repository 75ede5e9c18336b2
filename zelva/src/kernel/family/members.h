// Every family's member list, for what walks them all: each registration file expands it with
// ZV_REGISTER_ROW (which takes the rows of its own group), and the registry's tests check every row. A new
// family adds its list here.
#pragma once

#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/family/batchnorm/members.h"
#include "zelva/src/kernel/family/concatenate/members.h"
#include "zelva/src/kernel/family/conv1d/members.h"
#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/conv2d_int16/members.h"
#include "zelva/src/kernel/family/convtranspose/members.h"
#include "zelva/src/kernel/family/depthwise/members.h"
#include "zelva/src/kernel/family/elementwise/members.h"
#include "zelva/src/kernel/family/expand/members.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/family/input/members.h"
#include "zelva/src/kernel/family/layout/members.h"
#include "zelva/src/kernel/family/pixelshuffle/members.h"
#include "zelva/src/kernel/family/pooling/members.h"
#include "zelva/src/kernel/family/rnn/members.h"
#include "zelva/src/kernel/family/softargmax/members.h"
#include "zelva/src/kernel/family/transform/members.h"
#include "zelva/src/kernel/family/upsampling/members.h"
#include "zelva/src/kernel/family/warpaffine/members.h"

#define ZV_ALL_MEMBERS(X)      \
  ZV_INPUT_MEMBERS(X)          \
  ZV_BATCHNORM_MEMBERS(X)      \
  ZV_TRANSFORM_MEMBERS(X)      \
  ZV_CONV2D_MEMBERS(X)         \
  ZV_DEPTHWISE_MEMBERS(X)      \
  ZV_LAYOUT_MEMBERS(X)         \
  ZV_FULLCONNECTION_MEMBERS(X) \
  ZV_RNN_MEMBERS(X)            \
  ZV_ACTIVATION_MEMBERS(X)     \
  ZV_ELEMENTWISE_MEMBERS(X)    \
  ZV_PIXELSHUFFLE_MEMBERS(X)   \
  ZV_EXPAND_MEMBERS(X)         \
  ZV_SOFTARGMAX_MEMBERS(X)     \
  ZV_WARPAFFINE_MEMBERS(X)     \
  ZV_CONV2D_INT16_MEMBERS(X)   \
  ZV_CONV1D_MEMBERS(X)         \
  ZV_CONVTRANSPOSE_MEMBERS(X)  \
  ZV_UPSAMPLING_MEMBERS(X)     \
  ZV_POOLING_MEMBERS(X)        \
  ZV_CONCATENATE_MEMBERS(X)
