# zvkit check on models that load and then fail every apply, made here from a good fixture (the GRU net of
# tests/data/e2e): each must exit 1 and name the first layer and kernel that refuse, with the shapes.
#   cmake -DZVKIT=... -DDATA=.../tests/data -DWORK=<scratch dir> -P check_broken.cmake
file(MAKE_DIRECTORY ${WORK})
file(READ ${DATA}/e2e/vad_gru.json good_model)
file(READ ${DATA}/e2e/vad_gru.cfg.json good_config)

function(expect_problem name model config pattern)
  file(WRITE ${WORK}/${name}.json "${model}")
  file(WRITE ${WORK}/${name}.cfg.json "${config}")
  execute_process(COMMAND ${ZVKIT} check ${WORK}/${name}.json ${WORK}/${name}.cfg.json
    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result STREQUAL "1")
    message(FATAL_ERROR "${name}: expected exit code 1, got '${result}'\n${out}${err}")
  endif()
  if(NOT out MATCHES "${pattern}")
    message(FATAL_ERROR "${name}: no match for '${pattern}' in:\n${out}${err}")
  endif()
  message(STATUS "${name}: ok")
endfunction()

# The base size disagrees with the first reshape.
string(REPLACE "\"model_base_w\": 40" "\"model_base_w\": 41" model "${good_model}")
expect_problem(base_size "${model}" "${good_config}"
  "problem: layer \\[1\\] to_sequence \\(TensorReshapeInfo\\): kernel Reshape_Fallback_To_SC_M1 refuses its input 1x2x41 CHW: [^\n]*new shape holds 80 values")

# One more time step: the dense layer's in_features (64) disagrees with what feeds it (3 x 32).
string(REPLACE "\"model_base_h\": 2" "\"model_base_h\": 3" model "${good_model}")
expect_problem(dense_in_features "${model}" "${good_config}"
  "problem: layer \\[4\\] dense \\(FullConnectionInfo\\): kernel FullConnection_SSE_C_Float_M1 refuses its input 96 C")

# The two reshape kernels swapped in the configuration: the GRU gets a vector instead of a sequence.
string(REPLACE "Reshape_Fallback_To_SC_M1" "@SC@" config "${good_config}")
string(REPLACE "Reshape_Fallback_To_C_M1" "Reshape_Fallback_To_SC_M1" config "${config}")
string(REPLACE "@SC@" "Reshape_Fallback_To_C_M1" config "${config}")
expect_problem(swapped_reshapes "${good_model}" "${config}"
  "problem: layer \\[2\\] rnn \\(GRUInfo\\): kernel GRU_SSE_SC_F32_M1 refuses its input 1x2x40 C")

# A weight text with a character outside the Base64 alphabet: the net runs, the weights are garbage.
string(REPLACE "HbxavdvT" "Hbx#vdvT" model "${good_model}")
expect_problem(weight_text "${model}" "${good_config}"
  "warning: layer \\[rnn\\] weight_ih_forward\\[0\\]: 1 character\\(s\\) outside the Base64 alphabet, the first '#' at offset 3.*check failed")
