#include "cli/MachineInfoInterfaces.h"

#include <string>

namespace project_lumen::cli {
namespace {

// Placeholders in braces with a dollar sign depend on the variant.
constexpr std::string_view kBlocks = R"json("io": {
  "images": {
    "dimensions": { "scope": "original_input_image", "default": { "minimum_width": 512, "minimum_height": 512 }${with_upsample} },
    "inputs": [
      {
        "formats": ["tiff", "tif", "png"],
        "sample_types": ["uint8", "uint16"],
        "color_spaces": ["grayscale", "rgb"]
      },
      {
        "formats": ["fit", "fits", "fts", "fit.gz", "fits.gz", "fts.gz"],
        "sample_types": ["uint8", "int8", "int16", "uint16", "int32", "uint32", "float32", "float64"],
        "color_spaces": ["grayscale", "rgb"],
        "layouts": ["2d_image", "3d_rgb_cube"],
        "float_input_range": { "minimum": 0.0, "maximum": 1.0, "normalized": true,
          "linear_processing": { "requires": "linear", "policy": "fixed_sample_format_with_upper_clipping", "float_divisor": 1.0, "observed_range_rescaling": false, "header_extrema_used": false, "negative_policy": "${negative_policy}", "upper_policy": "clip_to_one_before_mtf_no_restoration", "warning_stream": "stderr", "warns_when_quiet": true, "physical_precision": "float64", "mtf_precision": "float64", "inverse_precision": "float64", "inference_precision": "float32", "nonfinite_input": "reject", "constant_policy": "preserve_effective_source", "noninvertible_mtf": "reject_varying_endpoint_channel", "unscreen_fits_scaling": "float_identity_integer_full_range_fraction", "fits_output_mapping": { "image": "${image_mapping}", "difference": "fixed_divisor_times_clamped_normalized_effective_minus_main", "unscreen": "fraction_of_fixed_format_white" } } },
        "scope": "standard_image_hdu"
      }
    ],
    "outputs": [
      {
        "formats": ["tiff", "tif", "png"],
        "sample_types": ["uint8", "uint16"],
        "sample_type_policy": {
          "uint8_non_fits_input": "uint8",
          "uint16_non_fits_input": "uint16",
          "fits_input": "uint16",
          "normalized_white": { "uint8": 255, "uint16": 65535 },
          "explicit_override": false
        },
        "color_spaces": ["grayscale", "rgb"]
      },
      {
        "formats": ["fit", "fits", "fts"],
        "sample_types": ["uint8", "int8", "int16", "uint16", "int32", "uint32", "float32", "float64"],
        "sample_type_policy": {
          "fits_input": "preserve_storage_type_and_scaling",
          "integer_quantization": "nearest_storage_value",
          "integer_overflow": "source_storage_limits_with_warning",
          "fits_input_exceptions": {
            "float_unscreen": "preserve_storage_type_identity_scaling_dimensionless",
            "integer_unscreen": "preserve_storage_type_full_range_fraction"
          },
          "non_fits_input": "float32",
          "explicit_override": false
        },
        "color_spaces": ["grayscale", "rgb"],
        "layouts": ["2d_image", "3d_rgb_cube"],
        "scope": "standard_image_hdu"
      }
    ],
    "metadata_preservation": {
      "fits_header_same_family": true,
      "fits_sample_representation_same_family": true,
      "fits_container_policy": {
        "source_hdu": "selected_supported_image_hdu",
        "output_container": "new_single_image_fits",
        "preserved_header_cards": "applicable_nonstructural_cards_from_selected_hdu",
        "copies_other_hdus": false
      },
      "astrotiff_image_description_same_family": true,
      "cross_format": false
    },
    "literal_paths": true
  }
},
"diagnostics": {
  "schema": "nebulexastro.cli.diagnostic.v1", "stream": "stderr",
  "machine_option": "machine_progress", "fields": ["schema", "severity", "code", "message"],
  "severity": ["info", "warning"], "quiet_suppresses_info": true,
  "warning_codes": ["data_loss", "output_fidelity", "execution_fallback"],
  "quiet_warning_free_success": "empty_stdout_and_stderr_unless_explicit_machine_output"
},
"progress": {
  "human": {
    "supported": true,
    "stream": "stdout",
    "format": "human_percent_lines",
    "stable": false
  },
  "machine": {
    "supported": true,
    "stream": "stderr",
    "format": "json_lines",
    "schema": "nebulexastro.cli.progress.v1",
    "events": ["start", "progress", "finish", "error"],
    "stable": true,
    "option": "machine_progress"
  }
}
)json";

constexpr std::string_view kWithUpsample =
    R"json(, "with_upsample": { "minimum_width": 256, "minimum_height": 256, "requires_flag": "--upsample" })json";

void Substitute(std::string& text, std::string_view placeholder, std::string_view value) {
  text.replace(text.find(placeholder), placeholder.size(), value);
}

}  // namespace

void WriteInterfaceBlocks(std::ostream& stream, std::string_view indent, bool linearRestoration) {
  std::string blocks(kBlocks);
  Substitute(blocks, "${with_upsample}", linearRestoration ? kWithUpsample : "");
  Substitute(blocks, "${negative_policy}",
             linearRestoration ? "restore_forward_shadow_samples"
                               : "inverse_mtf_without_source_restoration");
  Substitute(blocks, "${image_mapping}",
             linearRestoration ? "fixed_divisor_times_final_main_with_shadow_restoration"
                               : "fixed_divisor_times_final_main");
  for (std::size_t start = 0; start < blocks.size();) {
    const std::size_t end = blocks.find('\n', start) + 1;
    stream << indent << std::string_view(blocks).substr(start, end - start);
    start = end;
  }
}

}  // namespace project_lumen::cli
